#include "ops/level/LabEnhancer.h"

#include <cstring>

#include "core/Color.h"
#include "kernels/Vec4.h"
#include "ops/level/LabEnhancerRow.h"

using qrn::lab::Mapping;

// CColor's conversion of one pixel. noinline: inlined into a wide row, its steps could be
// fused or reordered by that row's code generation.
__attribute__((noinline)) void qrn::lab::ThroughColor(const Mapping& mp, const float (&in)[3], float (&out)[3]) {
  const CLabEnhancer::Levels& lv = mp.levels;
  CColor color;
  color.RgbToLab((in[0] - lv.srcMin[0]) * lv.srcScale[0], (in[1] - lv.srcMin[1]) * lv.srcScale[1],
                 (in[2] - lv.srcMin[2]) * lv.srcScale[2]);
  const double a = color.Geta(), b = color.Getb();
  color.LabToRgb(color.GetL(), a * mp.cs - b * mp.sn + mp.aShift, a * mp.sn + b * mp.cs + mp.bShift);
  const double rgb[3] = {color.GetR(), color.GetG(), color.GetB()};
  for (int k = 0; k < 3; ++k) out[k] = static_cast<float>(rgb[k] * lv.dstScale[k] + lv.dstMin[k]);
}

int qrn::lab::MapPixel(const Mapping& mp, const float (&in)[3], float (&out)[3]) {
  using F = Lanes<4>::F;
  F pixel[1][3], result[1][3];
  for (int k = 0; k < 3; ++k) pixel[0][k] = F{in[k], in[k], in[k], in[k]};
  LaneMask<4> inRange[1];
  Enhance<4>(mp, pixel, result, inRange);
  if (inRange[0][0] == 0) {
    ThroughColor(mp, in, out);
    return 1;
  }
  for (int k = 0; k < 3; ++k) out[k] = result[0][k][0];
  return 0;
}

namespace {

Mapping MakeMapping(const CLabEnhancer::Levels& levels, double cs, double sn, double aShift, double bShift) {
  return {levels, cs, sn, aShift, bShift, 0.4 * sn, aShift / 500.0, 2.5 * sn, bShift / 200.0};
}

// Four pixels per vector of doubles: 256-bit on the wide path, two 128-bit halves on the
// four-wide one. Without fused multiply-add: a fused step would round once where the
// four-wide path and Pixel() round twice. Every step is a lane-wise IEEE operation, so all
// widths give the same bits.
QRN_WIDE_TARGET int RowWithWide(const Mapping& mp, const float* const* in, float* const* out, int n) {
  return qrn::lab::RowWith<4>(mp, in, out, n);
}

}  // namespace

CLabEnhancer::CLabEnhancer(const Levels& levels, double cs, double sn, double aShift, double bShift)
    : m_levels(levels), m_cs(cs), m_sn(sn), m_aShift(aShift), m_bShift(bShift) {}

void CLabEnhancer::Pixel(const float (&in)[3], float (&out)[3]) const {
  qrn::lab::MapPixel(MakeMapping(m_levels, m_cs, m_sn, m_aShift, m_bShift), in, out);
}

int CLabEnhancer::Row(const float* const* in, float* const* out, int n) const {
  const Mapping mp = MakeMapping(m_levels, m_cs, m_sn, m_aShift, m_bShift);
  if (qrn::simd::WidestVectors()) return qrn::lab::RowWidest(mp, in, out, n);
  return qrn::simd::WideVectors() ? RowWithWide(mp, in, out, n) : qrn::lab::RowWith<4>(mp, in, out, n);
}
