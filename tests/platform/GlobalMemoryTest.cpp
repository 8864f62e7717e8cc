#include "platform/GlobalMemory.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(GlobalMemory, ZeroInitialisedBlockKeepsItsSizeAndLockCount) {
  HGLOBAL mem = GlobalAlloc(GHND, 1000);
  ASSERT_NE(mem, nullptr);
  EXPECT_EQ(GlobalSize(mem), 1000u);
  auto* bytes = static_cast<unsigned char*>(GlobalLock(mem));
  ASSERT_NE(bytes, nullptr);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(bytes[i], 0) << i;
  std::memset(bytes, 7, 1000);
  EXPECT_EQ(GlobalLock(mem), bytes);           // the block does not move while it exists
  EXPECT_EQ(GlobalUnlock(mem), TRUE);          // still locked once
  EXPECT_EQ(GlobalUnlock(mem), FALSE);         // now unlocked
  EXPECT_EQ(GlobalUnlock(mem), FALSE);         // unlocking an unlocked block is harmless
  EXPECT_EQ(static_cast<unsigned char*>(GlobalLock(mem))[999], 7);
  EXPECT_EQ(GlobalFree(mem), nullptr);
}

TEST(GlobalMemory, RefusesEmptyAndAbsurdSizesAndNullHandles) {
  EXPECT_EQ(GlobalAlloc(GHND, 0), nullptr);
  EXPECT_EQ(GlobalAlloc(GHND, ~std::size_t(0)), nullptr);
  EXPECT_EQ(GlobalLock(nullptr), nullptr);
  EXPECT_EQ(GlobalSize(nullptr), 0u);
  EXPECT_EQ(GlobalFree(nullptr), nullptr);
}
