// Truncation of floating-point numbers to integers that is defined for every value.

#ifndef FRAME_TRUNCATE_H
#define FRAME_TRUNCATE_H

#include <emmintrin.h>

#include <cstdint>

// The processor's own truncations: toward zero, and the smallest integer for a NaN and for what
// does not fit, where a cast of the language would be undefined.
inline int32_t trunc32(float value) { return _mm_cvttss_si32(_mm_set_ss(value)); }
inline int32_t trunc32(double value) { return _mm_cvttsd_si32(_mm_set_sd(value)); }
inline int64_t trunc64(float value) { return _mm_cvttss_si64(_mm_set_ss(value)); }
inline int64_t trunc64(double value) { return _mm_cvttsd_si64(_mm_set_sd(value)); }

#endif
