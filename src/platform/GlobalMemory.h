// Movable memory blocks for packed bitmaps handed between library and host.
#pragma once
#include <cstddef>

#include "platform/Types.h"

struct HGLOBAL__;
/// Opaque handle to a memory block; null means none.
using HGLOBAL = HGLOBAL__*;

/// @brief Allocates size bytes (zeroed with GMEM_ZEROINIT); null when size is 0 or memory is exhausted.
HGLOBAL GlobalAlloc(UINT flags, std::size_t size);
/// @brief Address of the block's bytes, counting one more lock; null for a null handle.
void* GlobalLock(HGLOBAL mem);
/// @brief Releases one lock; returns TRUE while the block is still locked.
BOOL GlobalUnlock(HGLOBAL mem);
/// @brief Frees the block; returns null on success, as the system call does.
HGLOBAL GlobalFree(HGLOBAL mem);
/// @brief Size in bytes of the block; 0 for a null handle.
std::size_t GlobalSize(HGLOBAL mem);
