// A bitmap held as one packed bitmap in movable memory.
#include "core/MemoryDIB.h"

#include <cstring>

CMemoryDIB::~CMemoryDIB() { Destroy(); }

bool CMemoryDIB::AllocateRows() {
  const std::size_t imageSize = std::size_t(GetStride()) * GetHeight();
  const std::size_t paletteSize = GetBitCount() == 8 ? sizeof m_palette : 0;
  m_block = GlobalAlloc(GHND, kHeaderSize + paletteSize + imageSize);
  if (!m_block) return false;
  m_packed = static_cast<BYTE*>(GlobalLock(m_block));
  WriteHeader(m_packed, GetWidth(), GetHeight(), GetBitCount(), imageSize);
  m_bits = m_packed + kHeaderSize + paletteSize;
  return true;
}

void CMemoryDIB::ReleaseRows() {
  if (m_block) {
    GlobalUnlock(m_block);
    GlobalFree(m_block);
  }
  m_block = nullptr;
  m_packed = m_bits = nullptr;
}

HGLOBAL CMemoryDIB::GetHDIB() {
  if (m_block && GetBitCount() == 8) std::memcpy(m_packed + kHeaderSize, m_palette, sizeof m_palette);
  return m_block;
}
