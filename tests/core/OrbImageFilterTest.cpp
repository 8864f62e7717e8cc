#include <gtest/gtest.h>

#include "common/ImageCompare.h"
#include "core/OrbImage.h"
#include "kernels/FilterMatrix.h"

TEST(OrbImageFilter, HooksSelectPlanesAndSlots) {
  COrbImage src(-32, 7, 5, 3), owner(-32, 7, 5, 3);
  qrntest::Fill(src, [](int x, int y, int p) { return 100 * p + 10 * y + x; });
  CFilterMatrix id, blur;
  id.Gaussian(1, 0.0);
  blur.Gaussian(2, 1.0);
  EXPECT_EQ(owner.MakeFilterProc(&src, &id, 3, 1), 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(owner.MakeFilterProc(&src, &id, p, 1), 1);
  owner.SetFilterProcPln(2);
  EXPECT_EQ(owner.CalcFilterProc(3, 4), 243.0f);
  owner.SetFilterProcPln(7);  // out of range selects plane 0
  EXPECT_EQ(owner.CalcFilterProc(3, 4), 43.0f);
  EXPECT_EQ(owner.CalcFilterProc(3, 4, 1), 143.0f);

  EXPECT_EQ(owner.MakeFilterProcEx(5, &src, &id, 1, 1), 1);
  owner.SetFilterProcPlnEx(5, 1);
  EXPECT_EQ(owner.CalcFilterProcEx(5, 6, 0), 106.0f);
  EXPECT_EQ(owner.CalcFilterProcEx(5, 6, 0, 1), 106.0f);

  // Building again without clearing keeps the old kernel; after ClearFilterProc it changes.
  EXPECT_EQ(owner.MakeFilterProc(&src, &blur, 0, 1), 1);
  EXPECT_EQ(owner.CalcFilterProc(3, 2, 0), 23.0f);
  owner.ClearFilterProc();
  owner.MakeFilterProc(&src, &blur, 0, 1);
  owner.MakeFilterProcEx(5, &src, &blur, 1, 1);
  // A symmetric blur of a linear ramp keeps the value away from the edges (float taps).
  EXPECT_NEAR(owner.CalcFilterProc(3, 2, 0), 23.0f, 1e-4);
  EXPECT_NEAR(owner.CalcFilterProcEx(5, 3, 2, 1), 123.0f, 1e-4);
}
