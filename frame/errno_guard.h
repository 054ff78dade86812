// ErrnoGuard: the caller's errno, put back at the end of the scope.

#ifndef FRAME_ERRNO_GUARD_H
#define FRAME_ERRNO_GUARD_H

#include <cerrno>

class ErrnoGuard {
 public:
  ErrnoGuard() : saved_(errno) {}
  ~ErrnoGuard() { errno = saved_; }
  ErrnoGuard(const ErrnoGuard &) = delete;
  ErrnoGuard &operator=(const ErrnoGuard &) = delete;

 private:
  int saved_;
};

#endif
