// The rules of conv/rules.h for blocks: by which step the elements of one type become another. The
// steps stand in lanes.h for SSE2 and AVX2, in avx512.cpp for AVX-512:
//
//   resized                        integers to integers: low bytes, or a sign or zeros before them
//   narrowed<To, Saturate>         integers to what is narrower, with a look at what is lost
//   to_floating<To, Check>         integers to floating; without Check, none is inexact
//   truncated, saturated           floating to integers
//   to_double, to_float, checked   floating to floating

template <class H, class E, int N>
INLINE Block<H, N> read(Block<E, N> x, Flaws &flaws) {
  if constexpr (std::is_integral_v<E> && std::is_integral_v<H>) {
    if constexpr (sizeof(H) < sizeof(E))
      return narrowed<H, false>(x, flaws);
    else
      return resized<H>(x);
  } else if constexpr (std::is_integral_v<E>) {
    return to_floating<H, true>(x, flaws);
  } else if constexpr (std::is_integral_v<H>) {
    return truncated<H>(x, flaws);
  } else if constexpr (sizeof(E) == sizeof(H)) {
    return checked(x, flaws);
  } else if constexpr (sizeof(E) < sizeof(H)) {
    return to_double(x, flaws);
  } else {
    return to_float(x, flaws);
  }
}

template <class E, class H, int N>
INLINE Block<E, N> write(Block<H, N> x, Flaws &flaws) {
  if constexpr (std::is_integral_v<E> && std::is_integral_v<H>) {
    if constexpr (sizeof(E) < sizeof(H))
      return narrowed<E, true>(x, flaws);
    else
      return resized<E>(x);
  } else if constexpr (std::is_integral_v<H>) {
    return to_floating<E, std::is_signed_v<H>>(x, flaws);
  } else if constexpr (std::is_integral_v<E>) {
    if constexpr (std::is_signed_v<E> && sizeof(E) >= sizeof(H))
      return truncated<E>(x, flaws);
    else
      return saturated<E>(x, flaws);
  } else {
    return read<E>(x, flaws);
  }
}
