// gxopen, gxpipe, gxpipex, gxline, gxtell, gxseek, gxclose: lines out of a mapped file, or out of
// all that a command has printed.

#include "include/plintor.h"

#include <emmintrin.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "frame/errno_guard.h"
#include "frame/report.h"
#include "frame/vestan.h"

namespace {

struct GxFile {
  char *data;       // the mapping, or null as long as a command's output is not collected
  int32_t size;     // Kept: 32 bits, so of a larger file the low half of its length
  int32_t pid;      // the command's, -1 once it is reaped
  int32_t fd;       // the command's output file, -1 when there is none
  int32_t pipe_fd;  // read end of the command's standard input
  int32_t pos;      // offset into data
};

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
Tbl *gxFiles;  // the open handles; null in a slot that is free

class Lock {
 public:
  Lock() { pthread_mutex_lock(&mutex); }
  ~Lock() { pthread_mutex_unlock(&mutex); }
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;
};

// Under the mutex, as the next one.
GxFile *find(int handle) {
  if (gxFiles == nullptr) gxFiles = newtbl(0);
  return static_cast<GxFile *>(gettbl(gxFiles, handle));
}

// Into the lowest free slot, which is the one behind the last when none is free before it.
int enter(GxFile *file) {
  int handle = 0;
  while (find(handle) != nullptr) ++handle;
  settbl(gxFiles, handle, file);
  return handle;
}

GxFile *gnew() {
  auto *mapped = static_cast<GxFile *>(calloc(1, sizeof(GxFile)));
  if (mapped == nullptr) DIE_OUT_OF_MEMORY("gnew", 30, "gxline.cpp", "mapped", 1);
  mapped->pid = -1;
  mapped->fd = -1;
  return mapped;
}

// Waits for the command to end and maps what it printed.
void gxmap(GxFile *file) {
  if (file->pid <= 0) {
    elog_log(0, "no pid");
    return;
  }
  close(file->pipe_fd);
  // A program that ignores SIGCHLD gets ECHILD here, also only when the command has ended.
  while (waitpid(file->pid, nullptr, 0) < 0 && errno == EINTR) {
  }
  file->pid = -1;
  if (file->fd < 0) {
    elog_log(0, "no open file");
    return;
  }
  struct stat st;
  if (fstat(file->fd, &st) != 0) {
    elog_log(1, "fstat failed\n");
    return;
  }
  if (st.st_size == 0) {
    elog_log(1, "output is empty");
    return;
  }
  void *data = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, file->fd, 0);
  close(file->fd);
  // Kept: after a failed mapping the record holds the number of a closed descriptor, and gxclose
  // closes that number again, whoever has it by then.
  if (data == MAP_FAILED) return;
  file->fd = -1;
  file->data = static_cast<char *>(data);
  file->size = static_cast<int32_t>(st.st_size);
  file->pos = 0;
}

bool gx_executable(const char *path) {
  const ErrnoGuard errno_of_the_caller;
  struct stat st;
  return restat(path, &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 0111) != 0;
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// The command with its first word replaced by the program of that name along PATH; null when
// there is none. The caller frees.
char *along_path(const char *command) {
  // Kept: leading blanks belong to the word, so that a command with any is never found.
  const char *end = command;
  while (is_blank(*end)) ++end;
  while (*end != '\0' && !is_blank(*end)) ++end;
  char word[256];
  const size_t length = static_cast<size_t>(end - command);
  if (length >= sizeof word) return nullptr;
  memcpy(word, command, length);
  word[length] = '\0';

  const char *path = getenv("PATH");
  if (path == nullptr) return nullptr;
  char *copy = strdup(path);
  if (copy == nullptr) return nullptr;
  Tbl *directories = split(copy, ':');
  char *fixed = nullptr;
  for (long k = 0; fixed == nullptr; ++k) {
    const auto *directory = static_cast<const char *>(gettbl(directories, k));
    if (directory == nullptr) break;
    // Kept: an empty entry is the root directory, and a candidate too long is tried as it is cut.
    char candidate[1024];
    strlcpy(candidate, directory, sizeof candidate);
    strlcat(candidate, "/", sizeof candidate);
    strlcat(candidate, word, sizeof candidate);
    if (!gx_executable(candidate)) continue;
    const size_t sum = strlen(candidate) + strlen(end);
    fixed = static_cast<char *>(calloc(sum + 1, 1));
    if (fixed == nullptr) DIE_OUT_OF_MEMORY("gxpipex", 155, "gxline.cpp", "fixed", sum);
    strlcpy(fixed, candidate, sum + 1);
    strlcat(fixed, end, sum + 1);
  }
  freetbl(directories, nullptr);
  free(copy);
  return fixed;
}

// In the child: the pipe becomes its standard input, the file its standard output and error,
// wherever below 3 they and the pipe's write end may stand because the caller had those closed.
void connect(int read_end, int write_end, int file) {
  if (file == 0) file = dup2(file, write_end);  // out of the way; nobody needs the write end
  dup2(read_end, 0);
  dup2(file, 1);
  dup2(file, 2);
  if (write_end > 2) close(write_end);
  // A descriptor that stood where it belongs would be closed by exec, as ours all are.
  for (int fd = 0; fd <= 2; ++fd) fcntl(fd, F_SETFD, 0);
}

// ---- One line -------------------------------------------------------------------------------
//
// The rule goes byte by byte up to a newline or a NUL. Here 64 bytes are looked at in one step,
// none of them behind the last that the rule could come to, and nothing is written behind the
// line's NUL.

struct Block {
  __m128i part[4];
};

__m128i load(const char *from) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from)); }
void store(char *to, __m128i bytes) { _mm_storeu_si128(reinterpret_cast<__m128i *>(to), bytes); }

Block load_block(const char *from) {
  return {{load(from), load(from + 16), load(from + 32), load(from + 48)}};
}

// Zero in the bytes that end a line, and in those alone.
__m128i zero_at_ends(__m128i bytes) {
  return _mm_min_epu8(bytes, _mm_xor_si128(bytes, _mm_set1_epi8('\n')));
}

unsigned zeros(__m128i bytes) {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
}

// A bit for each byte that ends a line, the first byte's the lowest.
uint64_t ends(const Block &block) {
  uint64_t bits = 0;
  for (int k = 3; k >= 0; --k) bits = bits << 16 | zeros(zero_at_ends(block.part[k]));
  return bits;
}

// 4 .. 15 bytes by words of 4, 16 .. 63 by words of 16: four moves that overlap, and no branch that
// would have to guess a line's length.
template <typename Word>
void copy_in_four(char *to, const char *from, size_t n) {
  constexpr size_t size = sizeof(Word);
  const size_t step = (n & 2 * size) / 2;  // a word when there are two or more, else 0
  Word first, second, third, last;
  memcpy(&first, from, size);
  memcpy(&second, from + step, size);
  memcpy(&third, from + n - size - step, size);
  memcpy(&last, from + n - size, size);
  memcpy(to, &first, size);
  memcpy(to + step, &second, size);
  memcpy(to + n - size - step, &third, size);
  memcpy(to + n - size, &last, size);
}

// n < 64
void copy_short(char *to, const char *from, size_t n) {
  if (n >= 16) {
    copy_in_four<__m128i>(to, from, n);
  } else if (n >= 4) {
    copy_in_four<uint32_t>(to, from, n);
  } else if (n > 0) {
    const char first = from[0], middle = from[n / 2], last = from[n - 1];
    to[0] = first;
    to[n / 2] = middle;
    to[n - 1] = last;
  }
}

// Copies the bytes before the first newline or NUL among from[0 .. limit - 1], or all of them.
// Returns how many.
size_t copy_line(char *to, const char *from, size_t limit) {
  size_t n = 0;
  if (limit < 64) {
    for (; n < limit && from[n] != '\n' && from[n] != '\0'; ++n) to[n] = from[n];
    return n;
  }
  for (; limit - n >= 64; n += 64) {
    const Block block = load_block(from + n);
    if (const uint64_t bits = ends(block)) {
      const auto found = static_cast<size_t>(std::countr_zero(bits));
      copy_short(to + n, from + n, found);
      return n + found;
    }
    for (int k = 0; k < 4; ++k) store(to + n + 16 * k, block.part[k]);
  }
  size_t rest = limit - n;
  if (rest == 0) return n;
  // The last 64 of all, without the bits of those that were looked at before.
  if (const uint64_t bits = ends(load_block(from + limit - 64)) >> (64 - rest))
    rest = static_cast<size_t>(std::countr_zero(bits));
  copy_short(to + n, from + n, rest);
  return n + rest;
}

}  // namespace

extern "C" int gxopen(const char *path) {
  const int fd = open(path, O_RDONLY);
  if (fd < 0) {
    elog_complain(1, "Couldn't open %s\n", path);
    return -1;
  }
  struct stat st;
  if (fstat(fd, &st) != 0) {
    elog_complain(1, "fstat failed for '%s'\n", path);
    close(fd);
    return -1;
  }
  if (st.st_size == 0) {
    elog_complain(1, "'%s' is empty\n", path);
    close(fd);
    return -1;
  }
  void *data = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
  {
    const ErrnoGuard cause_of_a_failed_mapping;
    close(fd);
  }
  if (data == MAP_FAILED) {
    elog_complain(1, "Can't map file %s\n", path);
    return -1;
  }

  GxFile *file = gnew();
  file->data = static_cast<char *>(data);
  file->size = static_cast<int32_t>(st.st_size);
  const Lock lock;
  return enter(file);
}

extern "C" int gxpipe(const char *command, char *const envp[], int *fd) {
  char name[] = "/tmp/gxpipeXXXXXX";
  int ends[2];
  if (pipe(ends) != 0) {
    elog_log(1, "Couldn't create pipes");
    return -1;
  }
  // Close-on-exec, all three: no command of another handle shall hold them open.
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  fcntl(ends[1], F_SETFD, FD_CLOEXEC);
  const int output = mkstemp(name);
  if (output < 0) {
    elog_log(1, "mkstemp failed'");  // Kept: the stray quote, and the pipe left open
    return -1;
  }
  fcntl(output, F_SETFD, FD_CLOEXEC);
  GxFile *file = gnew();
  unlink(name);
  file->fd = output;
  int handle;
  {
    const Lock lock;
    handle = enter(file);
  }

  // Built before the fork: the child of a process with threads must not allocate. Without memory
  // for the copy there is a child all the same, which reports why it cannot start.
  char *copy = strdup(command);
  Tbl *words = nullptr;
  char **argv = nullptr;
  if (copy != nullptr) {
    words = split(copy, ' ');
    pushtbl(words, nullptr);
    argv = static_cast<char **>(addrtbl(words, 0));
  }
  const pid_t pid = fork();
  if (pid == 0) {
    connect(ends[0], ends[1], output);
    if (argv == nullptr) {
      errno = ENOMEM;
    } else if (envp != nullptr) {
      execve(argv[0], argv, envp);
    } else {
      execv(argv[0], argv);
    }
    elog_die(1, "Couldn't exec '%s' : '%s'", argv == nullptr ? command : argv[0], command);
  }
  if (pid < 0) {
    elog_log(1, "fork failed");  // Kept: the record stays in its slot, its descriptors open
    handle = -1;
  } else {
    *fd = ends[0];
    file->pipe_fd = ends[0];
    file->pid = pid;
    close(ends[1]);
  }
  if (words != nullptr) freetbl(words, nullptr);
  free(copy);
  return handle;
}

extern "C" int gxpipex(const char *command, int *fd) {
  char *resolved = command[0] == '/' ? nullptr : along_path(command);
  const int handle = gxpipe(resolved != nullptr ? resolved : command, nullptr, fd);
  free(resolved);
  return handle;
}

extern "C" int gxline(int handle, char *buffer, int length) {
  if (length < 1) return 0;
  GxFile *file;
  {
    const Lock lock;
    file = find(handle);
  }
  if (file == nullptr) return 0;
  if (file->data == nullptr) gxmap(file);

  const int32_t remaining = file->size - file->pos;
  const int32_t limit = remaining < length - 1 ? remaining : length - 1;
  if (file->data == nullptr || limit <= 0) {  // no data, no room, or a size beyond 31 bits
    buffer[0] = '\0';
    return 0;
  }
  const char *from = file->data + file->pos;
  const auto n = static_cast<int32_t>(copy_line(buffer, from, static_cast<size_t>(limit)));
  buffer[n] = '\0';
  const bool newline = n < limit && from[n] == '\n';  // read over; a NUL is not
  file->pos += newline ? n + 1 : n;
  if (n == length - 1) return 2;
  return newline || n > 0 ? 1 : 0;
}

extern "C" int gxtell(int handle) {
  const Lock lock;
  const GxFile *file = find(handle);
  return file == nullptr ? -1 : file->pos;
}

extern "C" int gxseek(int handle, int offset) {
  const Lock lock;
  GxFile *file = find(handle);
  if (file == nullptr) return 0;  // Kept: unlike gxtell's -1
  if (offset < 0 || offset > file->size) return -1;
  file->pos = offset;
  return 0;
}

extern "C" int gxclose(int handle) {
  const Lock lock;
  GxFile *file = find(handle);
  if (file == nullptr) return 0;
  // Kept: a command that was never read is not waited for, and its pipe stays open.
  const int result =
      file->data == nullptr ? 0 : munmap(file->data, static_cast<size_t>(file->size));
  {
    const ErrnoGuard cause_of_a_failed_munmap;
    if (file->fd >= 0) close(file->fd);
  }
  settbl(gxFiles, handle, nullptr);
  free(file);
  return result;
}
