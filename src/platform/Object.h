// Common base class with run-time class names.
#pragma once
#include <typeinfo>

/// @brief Root of the library's class tree; gives every object a virtual destructor
/// and its run-time class name.
class CObject {
 public:
  virtual ~CObject() = default;
  /// The mangled-free class name of the most derived type as the compiler reports it.
  const char* GetRuntimeClassName() const { return typeid(*this).name(); }
  template <class T>
  bool IsKindOf() const { return dynamic_cast<const T*>(this) != nullptr; }
};
