// Block table of a pixel store.
#pragma once
#include <vector>

/// Lock handle given out by a locked line access and given back to Unlock.
using LOCKHANDLE = void*;

/// @brief The block table of a pixel store: for each block, where it lives (its type)
/// and its slot there.
class CVmHandle {
 public:
  enum BlockType { kMemory = 0, kFile = 1 };

  void Resize(int blocks) { m_blocks.assign(blocks > 0 ? blocks : 0, Entry{}); }
  int GetBlockCount() const { return static_cast<int>(m_blocks.size()); }
  int GetType(int i) const { return m_blocks[i].type; }
  int GetSlotIndex(int i) const { return m_blocks[i].slot; }
  void Set(int i, int type, int slot) { m_blocks[i] = Entry{type, slot}; }

 private:
  struct Entry {
    int type = kMemory;
    int slot = -1;
  };
  std::vector<Entry> m_blocks;
};
