#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

// Which calls the library made. The path of a call in full, so only while one thread makes them.
struct Record {
  Lines calls;
  std::vector<int> modes;      // of access and dlopen
  const char *root = nullptr;  // what getvestan answers instead, in memory of its own
  bool strdup_fails = false;
  const void *copy = nullptr;    // what strdup gave
  const void *loaded = nullptr;  // the address that dlopen was given
  bool loads_nothing = false;    // dlopen is not passed on
};
Record *record = nullptr;

template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int access(const char *path, int mode) noexcept {
  if (record != nullptr) {
    record->calls.push_back(std::string("access ") + path);
    record->modes.push_back(mode);
  }
  return next<int(const char *, int)>("access")(path, mode);
}

void *dlopen(const char *path, int mode) noexcept {
  if (record != nullptr) {
    record->calls.push_back(std::string("dlopen ") + path);
    record->modes.push_back(mode);
    record->loaded = path;
    if (record->loads_nothing) return nullptr;
  }
  return next<void *(const char *, int)>("dlopen")(path, mode);
}

char *strdup(const char *text) noexcept {
  if (record != nullptr && record->strdup_fails) {
    errno = ENOMEM;
    return nullptr;
  }
  char *copy = next<char *(const char *)>("strdup")(text);
  if (record != nullptr) record->copy = copy;
  return copy;
}

char *getvestan(char *buffer) {
  if (record != nullptr && record->root != nullptr) return const_cast<char *>(record->root);
  return next<char *(char *)>("getvestan")(buffer);
}

}  // extern "C"

namespace {

// An install root of its own, which getvestan reports until the test ends.
class Root {
 public:
  Root() {
    char name[] = "/tmp/plintor-root-XXXXXX";
    if (mkdtemp(name) == nullptr) abort();
    path = name;
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    setenv("VESTAN", name, 1);
  }
  ~Root() {
    unsetenv("VESTAN");
    std::filesystem::remove_all(path);
  }

  // Puts shared object 1 or 2 there.
  void put(const std::string &file, int which, unsigned mode = 0755) {
    const std::filesystem::path to = path + "/" + file;
    std::filesystem::create_directories(to.parent_path());
    std::filesystem::copy_file(
        BINARY_DIR "/tests/libshared_object_" + std::to_string(which) + ".so", to);
    std::filesystem::permissions(to, std::filesystem::perms(mode));
  }

  std::string path;
};

// 1 or 2, 0 when nothing was loaded.
int loaded(const std::string &name) {
  void *library = std_dlopen(name.c_str());
  if (library == nullptr) return 0;
  const auto which = reinterpret_cast<int (*)()>(dlsym(library, "which_shared_object"));
  const int answer = which == nullptr ? -1 : which();
  dlclose(library);
  return answer;
}

// The calls of std_dlopen(name), nothing being loaded.
Record calls_of(const std::string &name, const char *root = nullptr) {
  Record made;
  made.loads_nothing = true;
  made.root = root;
  record = &made;
  EXPECT_EQ(std_dlopen(name.c_str()), nullptr);
  record = nullptr;
  return made;
}

std::string last_error() {
  const char *text = dlerror();
  return text == nullptr ? "" : text;
}

}  // namespace

TEST(std_dlopen, loads_a_short_name_from_the_main_directory) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  EXPECT_EQ(loaded("foo"), 1);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(std_dlopen, loads_a_short_name_that_is_only_in_the_contributed_directory) {
  Root root;
  root.put("contrib/lib/libfoo.so.3", 2);
  EXPECT_EQ(loaded("foo"), 2);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(std_dlopen, prefers_the_main_directory) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  root.put("contrib/lib/libfoo.so.3", 2);
  EXPECT_EQ(loaded("foo"), 1);
}

TEST(std_dlopen, passes_over_a_file_without_execute_permission) {
  Root root;
  root.put("lib/libfoo.so.3", 1, 0644);
  root.put("contrib/lib/libfoo.so.3", 2);
  EXPECT_EQ(loaded("foo"), 2);
}

TEST(std_dlopen, passes_over_a_file_without_read_permission) {
  Root root;
  root.put("lib/libfoo.so.3", 1, 0311);
  root.put("contrib/lib/libfoo.so.3", 2);
  const auto outcome = fakes::in_child([] {
    // Root may read everything: be nobody.
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) abort();
    EXPECT_EQ(loaded("foo"), 2);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(std_dlopen, loads_without_read_permission_as_root) {
  if (geteuid() != 0) GTEST_SKIP() << "not root";
  Root root;
  root.put("lib/libfoo.so.3", 1, 0111);
  root.put("contrib/lib/libfoo.so.3", 2);
  EXPECT_EQ(loaded("foo"), 1);
}

TEST(std_dlopen, does_not_test_the_contributed_directory) {
  Root root;
  root.put("contrib/lib/libfoo.so.3", 2, 0644);  // dlopen needs no execute permission
  EXPECT_EQ(loaded("foo"), 2);
  EXPECT_EQ(calls_of("foo").calls, (Lines{"access " + root.path + "/lib/libfoo.so.3",
                                          "dlopen " + root.path + "/contrib/lib/libfoo.so.3"}));
}

TEST(std_dlopen, tests_for_reading_and_executing_and_loads_lazily) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  const Record made = calls_of("foo");
  EXPECT_EQ(made.calls, (Lines{"access " + root.path + "/lib/libfoo.so.3",
                               "dlopen " + root.path + "/lib/libfoo.so.3"}));
  EXPECT_EQ(made.modes, (std::vector<int>{R_OK | X_OK, RTLD_LAZY}));
}

TEST(std_dlopen, does_not_add_the_library_to_the_global_scope) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  void *library = std_dlopen("foo");
  ASSERT_NE(library, nullptr);
  EXPECT_NE(dlsym(library, "which_shared_object"), nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "which_shared_object"), nullptr);
  dlclose(library);
}

TEST(std_dlopen, gives_NULL_and_dlerror_speaks_of_the_contributed_path) {
  Root root;
  EXPECT_EQ(std_dlopen("foo"), nullptr);
  EXPECT_EQ(last_error().find(root.path + "/contrib/lib/libfoo.so.3: "), 0u);
  EXPECT_EQ(fakes::log(), Lines{});

  root.put("lib/libfoo.so.3", 1, 0644);
  EXPECT_EQ(std_dlopen("foo"), nullptr);
  EXPECT_EQ(last_error().find(root.path + "/contrib/lib/libfoo.so.3: "), 0u);
}

TEST(std_dlopen, gives_NULL_and_dlerror_speaks_of_a_file_that_is_no_library) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  std::filesystem::resize_file(root.path + "/lib/libfoo.so.3", 10);
  root.put("contrib/lib/libfoo.so.3", 2);
  EXPECT_EQ(std_dlopen("foo"), nullptr);
  EXPECT_EQ(last_error().find(root.path + "/lib/libfoo.so.3: "), 0u);
}

TEST(std_dlopen, takes_the_major_version_3_only) {
  Root root;
  for (const char *file : {"lib/libfoo.so", "lib/libfoo.so.2", "lib/libfoo.so.4", "lib/foo.so.3"})
    root.put(file, 1);
  EXPECT_EQ(loaded("foo"), 0);
}

TEST(std_dlopen, passes_an_absolute_path_unchanged) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  root.put("elsewhere/other", 2);
  EXPECT_EQ(loaded(root.path + "/elsewhere/other"), 2);
  EXPECT_EQ(calls_of("/elsewhere//../other").calls,
            (Lines{"access /elsewhere//../other", "dlopen /elsewhere//../other"}));
  EXPECT_EQ(calls_of("/").calls, (Lines{"access /", "dlopen /"}));
}

TEST(std_dlopen, loads_an_absolute_path_without_execute_permission) {
  Root root;
  root.put("other", 2, 0644);
  EXPECT_EQ(loaded(root.path + "/other"), 2);
}

TEST(std_dlopen, gives_NULL_for_an_absolute_path_that_is_not_there) {
  Root root;
  const std::string path = root.path + "/nowhere/libfoo.so.3";
  EXPECT_EQ(std_dlopen(path.c_str()), nullptr);
  EXPECT_EQ(last_error().find(path + ": "), 0u);
}

TEST(std_dlopen, builds_a_path_of_any_other_name) {
  Root root;
  for (const char *name : {"", "./foo", "../foo", "a/b", "%s%n", "foo.so.3", "~/foo"}) {
    EXPECT_EQ(calls_of(name).calls,
              (Lines{"access " + root.path + "/lib/lib" + name + ".so.3",
                     "dlopen " + root.path + "/contrib/lib/lib" + name + ".so.3"}))
        << name;
  }
}

TEST(std_dlopen, takes_a_root_that_getvestan_keeps_in_memory_of_its_own) {
  EXPECT_EQ(
      calls_of("foo", "/opt/here").calls,
      (Lines{"access /opt/here/lib/libfoo.so.3", "dlopen /opt/here/contrib/lib/libfoo.so.3"}));
  EXPECT_EQ(calls_of("foo", "").calls,
            (Lines{"access /lib/libfoo.so.3", "dlopen /contrib/lib/libfoo.so.3"}));
}

TEST(std_dlopen, loads_from_a_copy_of_its_path) {
  Root root;
  const Record made = calls_of("foo");
  EXPECT_EQ(made.loaded, made.copy);
}

TEST(std_dlopen, frees_its_copy) {
  const std::string path = "/" + std::string(1000, 'p');
  for (int k = 0; k < 10; ++k) calls_of(path);
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 100; ++k) calls_of(path);
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}

TEST(std_dlopen, gives_NULL_when_there_is_no_memory_for_the_copy) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  Record made;
  made.strdup_fails = true;
  record = &made;
  EXPECT_EQ(std_dlopen("foo"), nullptr);  // not the handle that dlopen(NULL) would give
  record = nullptr;
  EXPECT_EQ(made.calls, Lines{"access " + root.path + "/lib/libfoo.so.3"});
}

// "/r/contrib/lib/lib" + name + ".so.3" has 23 characters more than the name, 8 more than the path
// in the main directory has.
TEST(std_dlopen, takes_a_path_of_4095_characters) {
  const std::string name(4095 - 23, 'n');
  EXPECT_EQ(calls_of(name, "/r").calls, (Lines{"access /r/lib/lib" + name + ".so.3",
                                               "dlopen /r/contrib/lib/lib" + name + ".so.3"}));
}

TEST(std_dlopen, gives_NULL_when_the_contributed_path_does_not_fit) {
  for (int k = 1; k <= 8; ++k) {
    const std::string name(static_cast<size_t>(4095 - 23 + k), 'n');
    EXPECT_EQ(calls_of(name, "/r").calls, Lines{"access /r/lib/lib" + name + ".so.3"}) << k;
  }
}

TEST(std_dlopen, gives_NULL_when_no_path_fits) {
  for (const size_t length : {4095 - 23 + 9, 4095, 4096, 4097, 8192, 100000})
    EXPECT_EQ(calls_of(std::string(length, 'n'), "/r").calls, Lines{}) << length;
}

TEST(std_dlopen, loads_from_the_main_directory_although_the_contributed_path_would_not_fit) {
  Root root;
  root.put("lib/libx/foo.so.3", 1);
  std::string name = "x/";
  while ((root.path + "/lib/lib" + name + "foo.so.3").size() < 4094) name += "./";
  name += "foo";
  EXPECT_EQ(loaded(name), 1);
}

TEST(std_dlopen, takes_an_absolute_path_of_4095_characters_and_no_longer_one) {
  const std::string path = "/" + std::string(4094, 'p');
  EXPECT_EQ(calls_of(path).calls, (Lines{"access " + path, "dlopen " + path}));
  EXPECT_EQ(calls_of(path + "p").calls, Lines{});
  EXPECT_EQ(calls_of(path + std::string(100000, 'p')).calls, Lines{});
}

TEST(std_dlopen, gives_NULL_when_the_root_does_not_fit) {
  const std::string root = "/" + std::string(5000, 'r');
  EXPECT_EQ(calls_of("foo", root.c_str()).calls, Lines{});
}

TEST(std_dlopen, loads_from_eight_threads_at_once) {
  Root root;
  root.put("lib/libfoo.so.3", 1);
  root.put("contrib/lib/libbar.so.3", 2);
  // Held: ThreadSanitizer does not see the loader's lock and would report it loading and unloading.
  void *held[] = {std_dlopen("foo"), std_dlopen("bar")};
  std::vector<std::thread> threads;
  for (int k = 0; k < 8; ++k) {
    threads.emplace_back([k] {
      for (int n = 0; n < 50; ++n) {
        EXPECT_EQ(loaded("foo"), 1) << k;
        EXPECT_EQ(loaded("bar"), 2) << k;
      }
    });
  }
  for (auto &thread : threads) thread.join();
  for (void *library : held) dlclose(library);
}
