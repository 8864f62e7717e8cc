// The gamma curve's row on 512-bit vectors. On x86-64 this file alone is compiled for
// AVX-512 (F, DQ, VL, BW) with fused multiply-add, so that the row's vector code is generated
// for that instruction set from the start; elsewhere it is compiled like the rest and never
// called. It names its own variant of the vector functions and uses nothing else inline from
// the library's headers, so no code of this instruction set can stand in for a baseline copy.
#define QRN_VMATH_VARIANT widest
#include "kernels/GammaCurveRow.h"

// Everything inlined into the row, as in the other widths' rows.
__attribute__((flatten)) int qrn::gamma::RowWidest(const CurveNumbers& c, const CGammaCurve& exact, const float* v,
                                                   int n, float* out) {
  return RowWith<8>(c, exact, v, n, out);
}
