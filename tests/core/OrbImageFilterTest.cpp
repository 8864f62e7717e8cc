#include <gtest/gtest.h>

#include "common/ImageCompare.h"
#include "core/OrbImage.h"
#include "kernels/FilterMatrix.h"
#include "kernels/FilterProc.h"

TEST(OrbImageFilter, HooksSelectPlanesAndSlots) {
  // x² makes a blur differ from the identity everywhere.
  COrbImage src(-32, 7, 5, 3), owner(-32, 7, 5, 3);
  qrntest::Fill(src, [](int x, int y, int p) { return 100 * p + 10 * y + x * x; });
  const auto raw = [&](int x, int y, int p) { return src.GetPixelGrayRaw(x, y, p); };
  CFilterMatrix id, blur;
  id.Gaussian(1, 0.0);
  blur.Gaussian(2, 1.0);
  EXPECT_EQ(owner.MakeFilterProc(&src, &id, 3, 1), 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(owner.MakeFilterProc(&src, &id, p, 1), 1);
  owner.SetFilterProcPln(2);
  EXPECT_EQ(owner.CalcFilterProc(3, 4), raw(3, 4, 2));
  owner.SetFilterProcPln(7);  // out of range selects plane 0
  EXPECT_EQ(owner.CalcFilterProc(3, 4), raw(3, 4, 0));
  EXPECT_EQ(owner.CalcFilterProc(3, 4, 1), raw(3, 4, 1));

  EXPECT_EQ(owner.MakeFilterProcEx(5, &src, &id, 3, 1), 0);  // no such plane
  EXPECT_EQ(owner.MakeFilterProcEx(6, &src, &id, 1, 1), 0);  // no such slot
  EXPECT_EQ(owner.MakeFilterProcEx(5, &src, &id, 1, 1), 1);
  owner.SetFilterProcPlnEx(5, 1);
  EXPECT_EQ(owner.CalcFilterProcEx(5, 6, 0), raw(6, 0, 1));
  EXPECT_EQ(owner.CalcFilterProcEx(5, 6, 0, 1), raw(6, 0, 1));

  // Building again without clearing keeps the old kernel; after ClearFilterProc it changes.
  EXPECT_EQ(owner.MakeFilterProc(&src, &blur, 0, 1), 1);
  EXPECT_EQ(owner.MakeFilterProcEx(5, &src, &blur, 1, 1), 1);
  EXPECT_EQ(owner.CalcFilterProc(3, 2, 0), raw(3, 2, 0));
  EXPECT_EQ(owner.CalcFilterProcEx(5, 3, 2, 1), raw(3, 2, 1));
  owner.ClearFilterProc();
  owner.MakeFilterProc(&src, &blur, 0, 1);
  owner.MakeFilterProcEx(5, &src, &blur, 1, 1);
  CFilterProc blur0(&src, &blur, 0), blur1(&src, &blur, 1);
  EXPECT_EQ(owner.CalcFilterProc(3, 2, 0), blur0.Calc(3, 2));
  EXPECT_EQ(owner.CalcFilterProcEx(5, 3, 2, 1), blur1.Calc(3, 2));
  EXPECT_NE(blur0.Calc(3, 2), raw(3, 2, 0));
}
