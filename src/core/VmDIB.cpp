// A bitmap whose rows live in the image block store.
#include "core/VmDIB.h"

CVmDIB::~CVmDIB() { Destroy(); }

bool CVmDIB::AllocateRows() {
  // One plane of single-byte samples, one store line per bitmap row.
  m_store = std::make_unique<CVmImage>();
  if (!m_store->Allocate(GetStride(), GetHeight(), 1, 1)) {
    m_store.reset();
    return false;
  }
  return true;
}

void CVmDIB::ReleaseRows() { m_store.reset(); }
