#include "container/VmImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "container/Image.h"
#include "container/VmManager.h"

class VmImageTest : public ::testing::Test {
 protected:
  void TearDown() override { CVmManager::Reset(); }
};

TEST_F(VmImageTest, LinesStartOn64ByteBoundariesAndAreZeroedBadSizesAreRefused) {
  CVmImage store;
  EXPECT_FALSE(store.Allocate(0, 10, 1, 4));
  EXPECT_FALSE(store.Allocate(10, -1, 1, 4));
  EXPECT_FALSE(store.Allocate(10, 10, 0, 4));
  EXPECT_FALSE(store.Allocate(std::numeric_limits<int>::max(), std::numeric_limits<int>::max(), 3, 8));  // 2^67 bytes
  EXPECT_FALSE(store.IsAllocated());
  ASSERT_TRUE(store.Allocate(17, 5, 3, 4));
  EXPECT_EQ(store.GetLineStride() % 64, 0u);
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 5; ++y) {
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(store.Address(0, y, p)) % 64, 0u);
      for (int x = 0; x < 17; ++x) EXPECT_EQ(*reinterpret_cast<float*>(store.Address(x, y, p)), 0.0f);
    }
  EXPECT_FALSE(store.IsFileBacked());
}

TEST_F(VmImageTest, LocksAreCountedAndReleased) {
  CVmManager::SetBlockSize(256);
  CVmImage store;
  ASSERT_TRUE(store.Allocate(64, 16, 1, 4));  // one 256-byte line per block
  LOCKHANDLE a = store.Lock(3, 0), b = store.Lock(3, 0), c = store.Lock(9, 0);
  EXPECT_EQ(store.GetLockCount(), 3);
  EXPECT_EQ(store.Unlock(a), 1);
  EXPECT_EQ(store.Unlock(b), 1);
  EXPECT_EQ(store.Unlock(b), 0);  // that block holds no more locks
  EXPECT_EQ(store.Unlock(nullptr), 0);
  EXPECT_EQ(store.GetLockCount(), 1);
  store.Lock(0, 0);
  store.UnlockAll();
  EXPECT_EQ(store.GetLockCount(), 0);
  EXPECT_EQ(store.Unlock(c), 0);
}

TEST_F(VmImageTest, ImagesAboveTheLimitLiveInAFileAndReadBackThroughLineAccess) {
  CVmManager::SetMemoryLimit(64 * 1024);
  CImage image(-32, 300, 200, 3);  // 3 planes x 200 lines x 1216 bytes: above the limit
  ASSERT_FALSE(image.IsEmpty());
  ASSERT_TRUE(image.GetVmImage().IsFileBacked());
  EXPECT_EQ(image.GetVmImage().GetHandle().GetType(0), CVmHandle::kFile);
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 200; ++y) {
      LOCKHANDLE lock;
      auto* line = static_cast<float*>(image.GetImageAdr(0, y, p, VM_LOCK, &lock));
      for (int x = 0; x < 300; ++x) line[x] = float(p * 100000 + y * 300 + x);
      image.Unlock(lock);
    }
  EXPECT_EQ(image.GetLockCount(), 0);
  CImage copy(image);  // the copy is file-backed too and holds the same samples
  ASSERT_TRUE(copy.GetVmImage().IsFileBacked());
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 200; y += 7)
      for (int x = 0; x < 300; x += 13) ASSERT_EQ(copy.GetPixel(x, y, p), double(p * 100000 + y * 300 + x));
  CImage small(-32, 10, 10, 1);
  EXPECT_FALSE(small.GetVmImage().IsFileBacked());
}
