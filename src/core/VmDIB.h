// A bitmap whose rows live in the image block store.
#pragma once
#include <memory>

#include "container/VmImage.h"
#include "core/BaseDIB.h"

/// @brief A bitmap whose rows are kept in a CVmImage block store, so a bitmap too large for
/// memory is backed by a mapped temporary file like a large image. Addressing, palette and
/// CreateHDIB() are those of CBaseDIB; rows are not contiguous with each other.
class CVmDIB : public CBaseDIB {
 public:
  CVmDIB() = default;
  ~CVmDIB() override;

  /// True when the rows are kept in a mapped file rather than memory.
  bool IsFileBacked() const { return m_store && m_store->IsFileBacked(); }

 protected:
  BYTE* GetRowAdr(int row) const override { return m_store->Address(0, row, 0); }
  bool AllocateRows() override;
  void ReleaseRows() override;

 private:
  std::unique_ptr<CVmImage> m_store;
};
