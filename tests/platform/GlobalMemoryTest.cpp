#include "platform/GlobalMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

TEST(GlobalMemory, ZeroInitialisedBlockKeepsItsSizeAndLockCountAndBadRequestsAreRefused) {
  EXPECT_EQ(GlobalAlloc(GHND, 0), nullptr);
  EXPECT_EQ(GlobalAlloc(GHND, ~std::size_t(0)), nullptr);
  EXPECT_EQ(GlobalLock(nullptr), nullptr);
  EXPECT_EQ(GlobalSize(nullptr), 0u);
  EXPECT_EQ(GlobalFree(nullptr), nullptr);
  HGLOBAL mem = GlobalAlloc(GHND, 1000);
  ASSERT_NE(mem, nullptr);
  EXPECT_EQ(GlobalSize(mem), 1000u);
  auto* bytes = static_cast<unsigned char*>(GlobalLock(mem));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(std::count(bytes, bytes + 1000, 0), 1000);
  std::memset(bytes, 7, 1000);
  EXPECT_EQ(GlobalLock(mem), bytes);           // the block does not move while it exists
  EXPECT_EQ(GlobalUnlock(mem), TRUE);          // still locked once
  EXPECT_EQ(GlobalUnlock(mem), FALSE);         // now unlocked
  EXPECT_EQ(GlobalUnlock(mem), FALSE);         // unlocking an unlocked block is harmless
  EXPECT_EQ(static_cast<unsigned char*>(GlobalLock(mem))[999], 7);
  EXPECT_EQ(GlobalFree(mem), nullptr);
}

TEST(GlobalMemory, LargeBlockFreedAndAskedForAgainIsZeroedOnRequest) {
  // A freed large block may be handed out again; GHND must still give zeros, the new size
  // and no leftover locks.
  constexpr std::size_t kLarge = std::size_t(3) << 20;
  HGLOBAL first = GlobalAlloc(GMEM_MOVEABLE, kLarge);
  ASSERT_NE(first, nullptr);
  std::memset(GlobalLock(first), 0x5a, kLarge);
  GlobalFree(first);

  HGLOBAL again = GlobalAlloc(GHND, kLarge - 100);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(GlobalSize(again), kLarge - 100);
  const auto* bytes = static_cast<const unsigned char*>(GlobalLock(again));
  EXPECT_EQ(std::count(bytes, bytes + kLarge - 100, 0), std::ptrdiff_t(kLarge - 100));
  EXPECT_EQ(GlobalUnlock(again), FALSE);  // one lock taken above, none inherited
  GlobalFree(again);
}
