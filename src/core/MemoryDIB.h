// A bitmap held as one packed bitmap in movable memory.
#pragma once
#include "core/BaseDIB.h"

/// @brief A bitmap whose header, palette and rows live in one movable memory block laid out
/// as a packed bitmap, kept locked while the object holds it so pixel addresses stay valid
/// until Destroy or the next Create.
///
/// GetDC() returns an opaque handle that identifies this bitmap while it holds pixels and null
/// otherwise; this platform has no drawing system, so hosts draw from GetBits() or from the
/// packed bitmap of CreateHDIB().
class CMemoryDIB : public CBaseDIB {
 public:
  CMemoryDIB() = default;
  ~CMemoryDIB() override;

  HDC GetDC() const { return IsEmpty() ? nullptr : reinterpret_cast<HDC>(const_cast<CMemoryDIB*>(this)); }
  /// The first stored row (the bottom line of the picture); null when empty.
  BYTE* GetBits() const { return m_bits; }
  /// The packed block itself (owned by this object; do not free). The palette part is
  /// refreshed from GetPalette() on each call.
  HGLOBAL GetHDIB();

 protected:
  BYTE* GetRowAdr(int row) const override { return m_bits + std::size_t(row) * GetStride(); }
  bool AllocateRows() override;
  void ReleaseRows() override;

 private:
  HGLOBAL m_block = nullptr;
  BYTE* m_packed = nullptr;
  BYTE* m_bits = nullptr;
};
