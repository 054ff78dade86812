// reserve_FILE, release_FILE: streams held open, so that one can be had where descriptors run out.

#include "include/plintor.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "frame/report.h"

namespace {

constexpr int N = 2;

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
FILE **Files;  // N slots; null in one that holds no stream

// Under the mutex.
void initFiles() {
  if (Files != nullptr) return;
  Files = static_cast<FILE **>(calloc(N, sizeof(FILE *)));
  if (Files == nullptr) DIE_OUT_OF_MEMORY("initFiles", 17, "reserve_FILE.cpp", "Files", N);
}

}  // namespace

extern "C" void reserve_FILE(void) {
  pthread_mutex_lock(&mutex);
  initFiles();
  for (int k = 0; k < N; ++k)
    if (Files[k] == nullptr) Files[k] = fopen("/dev/null", "rw");  // Kept: "rw" opens for reading
  pthread_mutex_unlock(&mutex);
}

extern "C" void release_FILE(void) {
  pthread_mutex_lock(&mutex);
  initFiles();
  for (int k = 0; k < N; ++k) {
    if (Files[k] == nullptr) continue;
    fclose(Files[k]);
    Files[k] = nullptr;
    break;
  }
  pthread_mutex_unlock(&mutex);
}
