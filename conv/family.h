// The grammar of the conversion family: which names exist, and which of them are one function.
//
//   [u] R E 2h H    external to host, as in ms2hi: layout m, external short, host int
//   [u] h H 2 R E   host to external, as in hi2ms
//
// R is the external layout (a, m, v), E the external and H the host type (b, s, i, l, f, d); the u
// makes both integer sides unsigned. A cell of the table is one E and one H in one layout:
//
//   EACH(R, E, H)           four functions: external to host and back, signed and unsigned
//   PAIR(R, E, H)           two functions: no side is an integer, so there are no u forms
//   ONCE(R, E, H)           two functions under four names: the u forms are the signed ones
//   LIKE(R, E, H, Q)        four names for what layout Q has in the same place
//   SAME(R, E, H, Q, F, K)  two names for what layout Q has for the types F and K
//
// Copies and integer reversals do not look at what they move, hence ONCE and SAME. Layout v differs
// from a in the external double alone, m from both in everything longer than a byte.
// Kept: ms2hs and ums2hs are two functions, where the longer reversals are one for both signs.

#ifndef CONV_FAMILY_H
#define CONV_FAMILY_H

// clang-format off
#define FAMILY(EACH, PAIR, ONCE, LIKE, SAME)                                                                                     \
  /* E   host: b             s               i               l               f                        d                       */ \
  /* b */ ONCE(a, b, b)    EACH(a, b, s)    EACH(a, b, i)    EACH(a, b, l)    EACH(a, b, f)           EACH(a, b, d)              \
  /* s */ EACH(a, s, b)    ONCE(a, s, s)    EACH(a, s, i)    EACH(a, s, l)    EACH(a, s, f)           EACH(a, s, d)              \
  /* i */ EACH(a, i, b)    EACH(a, i, s)    ONCE(a, i, i)    EACH(a, i, l)    EACH(a, i, f)           EACH(a, i, d)              \
  /* l */ EACH(a, l, b)    EACH(a, l, s)    EACH(a, l, i)    ONCE(a, l, l)    EACH(a, l, f)           EACH(a, l, d)              \
  /* f */ EACH(a, f, b)    EACH(a, f, s)    EACH(a, f, i)    EACH(a, f, l)    SAME(a, f, f, a, i, i)  PAIR(a, f, d)              \
  /* d */ EACH(a, d, b)    EACH(a, d, s)    EACH(a, d, i)    EACH(a, d, l)    PAIR(a, d, f)           PAIR(a, d, d)              \
                                                                                                                                 \
  /* b */ LIKE(m, b, b, a) LIKE(m, b, s, a) LIKE(m, b, i, a) LIKE(m, b, l, a) LIKE(m, b, f, a)        LIKE(m, b, d, a)           \
  /* s */ EACH(m, s, b)    EACH(m, s, s)    EACH(m, s, i)    EACH(m, s, l)    EACH(m, s, f)           EACH(m, s, d)              \
  /* i */ EACH(m, i, b)    EACH(m, i, s)    ONCE(m, i, i)    EACH(m, i, l)    EACH(m, i, f)           EACH(m, i, d)              \
  /* l */ EACH(m, l, b)    EACH(m, l, s)    EACH(m, l, i)    ONCE(m, l, l)    EACH(m, l, f)           EACH(m, l, d)              \
  /* f */ EACH(m, f, b)    EACH(m, f, s)    EACH(m, f, i)    EACH(m, f, l)    PAIR(m, f, f)           PAIR(m, f, d)              \
  /* d */ EACH(m, d, b)    EACH(m, d, s)    EACH(m, d, i)    EACH(m, d, l)    PAIR(m, d, f)           PAIR(m, d, d)              \
                                                                                                                                 \
  /* b */ LIKE(v, b, b, a) LIKE(v, b, s, a) LIKE(v, b, i, a) LIKE(v, b, l, a) LIKE(v, b, f, a)        LIKE(v, b, d, a)           \
  /* s */ LIKE(v, s, b, a) LIKE(v, s, s, a) LIKE(v, s, i, a) LIKE(v, s, l, a) LIKE(v, s, f, a)        LIKE(v, s, d, a)           \
  /* i */ LIKE(v, i, b, a) LIKE(v, i, s, a) LIKE(v, i, i, a) LIKE(v, i, l, a) LIKE(v, i, f, a)        LIKE(v, i, d, a)           \
  /* l */ LIKE(v, l, b, a) LIKE(v, l, s, a) LIKE(v, l, i, a) LIKE(v, l, l, a) LIKE(v, l, f, a)        LIKE(v, l, d, a)           \
  /* f */ LIKE(v, f, b, a) LIKE(v, f, s, a) LIKE(v, f, i, a) LIKE(v, f, l, a) SAME(v, f, f, a, i, i)  SAME(v, f, d, a, f, d)     \
  /* d */ EACH(v, d, b)    EACH(v, d, s)    EACH(v, d, i)    EACH(v, d, l)    PAIR(v, d, f)           SAME(v, d, d, a, l, l)
// clang-format on

#endif
