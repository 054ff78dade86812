// _init_Dlclock, set_Dlclock: hand a reference time to the host's time daemon, through the
// shared-memory segment that the daemon reads its reference clock from.

#include "include/plintor.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/time.h>

#include <atomic>
#include <cstdint>

#include "frame/truncate.h"
#include "frame/vestan.h"

namespace {

constexpr key_t kUnit0 = 0x4E545030;  // "NTP0"; unit 3 is "NTP3"
constexpr int kUnits = 4;

// The daemon's shared-memory format.
// Kept: 32-bit words throughout, also where time_t has 64 bits.
struct Segment {
  int32_t mode;                  // 1: readers compare count before and after they copy
  int32_t count;                 // one more per sample
  int32_t clock_seconds;         // the reference time
  int32_t clock_microseconds;    //
  int32_t receive_seconds;       // the local time when it was published
  int32_t receive_microseconds;  //
  int32_t leap;
  int32_t precision;
  int32_t samples;  // the daemon's
  int32_t valid;    // 0 while a sample is being written
  int32_t reserved[10];
};
static_assert(sizeof(Segment) == 80);

// Set once, never detached.
Segment *stamp;

// A word for the reader in the other process: it sees every earlier store when it sees this one.
void publish(int32_t &word, int64_t value) {
  std::atomic_ref(word).store(static_cast<int32_t>(value), std::memory_order_release);
}

Segment *AttachSharedMemory(int unit, int *shmid) {
  *shmid = shmget(kUnit0 + unit, sizeof(Segment), IPC_CREAT | 0777);
  if (*shmid == -1) return nullptr;
  void *address = shmat(*shmid, nullptr, 0);
  return address == reinterpret_cast<void *>(-1) ? nullptr : static_cast<Segment *>(address);
}

// The order of these stores is the protocol: not valid, then the data, then the count, then valid.
void PutTimeStamp(const timeval &receive, const timeval &clock, Segment &segment, int leap) {
  publish(segment.mode, 1);
  publish(segment.valid, 0);
  publish(segment.leap, leap);
  publish(segment.precision, -1);
  publish(segment.clock_seconds, clock.tv_sec);
  publish(segment.clock_microseconds, clock.tv_usec);
  publish(segment.receive_seconds, receive.tv_sec);
  publish(segment.receive_microseconds, receive.tv_usec);
  // Kept: the count moves after the data only; a reader looks at valid again once it has copied.
  publish(segment.count, int64_t{segment.count} + 1);
  publish(segment.valid, 1);
}

}  // namespace

extern "C" void _init_Dlclock(int unit) {
  if (stamp != nullptr) return;  // the first unit stays
  if (unit < 0 || unit >= kUnits)
    elog_die(0, "init_Dlclock called with unit=%d (should be in range 0..3)", unit);
  int shmid;
  stamp = AttachSharedMemory(unit, &shmid);
  if (shmid == -1 || stamp == nullptr) elog_die(1, "unable to attach shared memory");
}

extern "C" void set_Dlclock(double t) {
  if (stamp == nullptr) return;  // nobody to hand it to
  timeval receive, clock;
  gettimeofday(&receive, nullptr);
  clock.tv_sec = trunc64(t);
  clock.tv_usec = trunc64((t - static_cast<double>(clock.tv_sec)) * 1000000);
  PutTimeStamp(receive, clock, *stamp, 0);
}
