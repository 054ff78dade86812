// The C locale, in which numbers and patterns are read whatever locale the program has chosen.

#ifndef BASE_LOCALE_H
#define BASE_LOCALE_H

#include <locale.h>

// For this one locale the C library hands out an object of its own: nothing to release.
inline locale_t c_locale() { return newlocale(LC_ALL_MASK, "C", nullptr); }

// The calling thread's locale is the C locale until the end of the scope.
class CLocale {
 public:
  CLocale() : saved_(uselocale(c_locale())) {}
  ~CLocale() { uselocale(saved_); }
  CLocale(const CLocale &) = delete;
  CLocale &operator=(const CLocale &) = delete;

 private:
  locale_t saved_;
};

#endif
