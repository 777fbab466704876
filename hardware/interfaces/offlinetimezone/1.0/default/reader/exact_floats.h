// Makes float arithmetic give the same results with every compiler and on every processor. Sources
// of the reader that compute in floats include this header before all others.
//
// A product and a sum in one expression must be rounded twice, never fused (FMA). With fusing about
// one distance in a thousand would differ.
#pragma once

#include <cfloat>

#ifdef __clang__
#pragma STDC FP_CONTRACT OFF
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif

#if defined(__FAST_MATH__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__)
#error "Answers depend on floats as the standard has them: compile without -ffast-math and its like."
#endif
#if FLT_EVAL_METHOD != 0
#error "Answers depend on floats without excess precision: on 32-bit x86 add -msse2 -mfpmath=sse."
#endif
