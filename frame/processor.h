// The widest vector registers that a kernel may use.

#ifndef FRAME_PROCESSOR_H
#define FRAME_PROCESSOR_H

enum class Vectors {
  sse2,
  avx2,
  avx512,  // with BW, DQ, VL, CD and VBMI, and BMI2 beside them: Ice Lake, Zen 4 and later
};

// Those of this processor that the operating system saves.
Vectors best_vectors();

#endif
