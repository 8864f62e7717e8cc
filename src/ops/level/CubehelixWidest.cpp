// The cubehelix map's block on 512-bit vectors. On x86-64 this file alone is compiled for
// AVX-512 (F, DQ, VL, BW), without fused multiply-add, so that the block's vector code is
// generated for that instruction set from the start and rounds every step as the narrower
// rows do; elsewhere it is compiled like the rest and never called. It names its own variant
// of the vector functions and uses nothing else inline from the library's headers, so no
// code of this instruction set can stand in for a baseline copy.
#define QRN_VMATH_VARIANT widest
#include "ops/level/CubehelixRow.h"

// Everything inlined into the block, as in the other widths' rows.
__attribute__((flatten)) void qrn::falsecolor::CubehelixBlockWidest(const Paint& p, const float* t, int m,
                                                                     float (*raw)[256]) {
  CubehelixBlock<8>(p, t, m, raw);
}
