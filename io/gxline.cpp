// gxopen, gxpipe, gxpipex, gxline, gxtell, gxseek, gxclose: lines out of a mapped file, or out of
// all that a command has printed.

#include "include/plintor.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/single_threaded.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "frame/errno_guard.h"
#include "frame/processor.h"
#include "frame/report.h"
#include "frame/vestan.h"
#include "io/kernels/kernels.h"

namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
Tbl *gxFiles;  // the open handles; null in a slot that is free

// The first slots once more, for gxline in a process with one thread: it has nobody to lock out.
GxFile *near[64];
bool is_near(int handle) { return static_cast<unsigned>(handle) < std::size(near); }

class Lock {
 public:
  Lock() { pthread_mutex_lock(&mutex); }
  ~Lock() { pthread_mutex_unlock(&mutex); }
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;
};

// Under the mutex, as the next two.
GxFile *find(int handle) {
  if (gxFiles == nullptr) gxFiles = newtbl(0);
  return static_cast<GxFile *>(gettbl(gxFiles, handle));
}

void put(int handle, GxFile *file) {
  settbl(gxFiles, handle, file);
  if (is_near(handle)) near[handle] = file;
}

// Into the lowest free slot, which is the one behind the last when none is free before it.
int enter(GxFile *file) {
  int handle = 0;
  while (find(handle) != nullptr) ++handle;
  put(handle, file);
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
    elog_log(1, "output is empty");  // Kept: as for an empty file
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

// The first line: chooses how this process reads all of them.
int choose_and_read(GxFile *file, char *buffer, int length);

// Relaxed is enough: two threads that choose at once choose the same.
constinit std::atomic<LineKernel> read_line{choose_and_read};

int choose_and_read(GxFile *file, char *buffer, int length) {
  choose_line_kernel(best_vectors());
  return read_line.load(std::memory_order_relaxed)(file, buffer, length);
}

// For a handle that is not near, among threads, and before a command's output is there.
[[gnu::noinline]] int gxline_by_table(int handle, char *buffer, int length) {
  GxFile *file;
  {
    const Lock lock;
    file = find(handle);
  }
  if (file == nullptr) return 0;
  if (file->data == nullptr) gxmap(file);
  return read_line.load(std::memory_order_relaxed)(file, buffer, length);
}

}  // namespace

void choose_line_kernel(Vectors vectors) {
  LineKernel kernel = read_line_sse2;
  if (vectors == Vectors::avx2) kernel = read_line_avx2;
  if (vectors == Vectors::avx512) kernel = read_line_avx512;
  read_line.store(kernel, std::memory_order_relaxed);
}

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
    elog_complain(1, "'%s' is empty\n", path);  // Kept: with errno, though nothing has failed
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
  // Close-on-exec, all three: no command of another handle shall hold them open. Kept: one that
  // another thread starts before they are marked does, until it ends.
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  fcntl(ends[1], F_SETFD, FD_CLOEXEC);
  const int output = mkstemp(name);
  if (output < 0) {
    elog_log(1, "mkstemp failed'");  // Kept: the stray quote, and the pipe left open
    return -1;
  }
  fcntl(output, F_SETFD, FD_CLOEXEC);
  GxFile *file = gnew();  // Kept: without memory, the file stays in /tmp
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
    close(ends[1]);  // Kept: nobody holds the write end, so nothing can be sent
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
  GxFile *file = __libc_single_threaded && is_near(handle) ? near[handle] : nullptr;
  if (file == nullptr || file->data == nullptr) return gxline_by_table(handle, buffer, length);
  return read_line.load(std::memory_order_relaxed)(file, buffer, length);
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
  put(handle, nullptr);
  free(file);
  return result;
}
