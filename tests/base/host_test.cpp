#include <errno.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "tests/fakes/host.h"
#include "tests/fakes/memory.h"

namespace {

bool has_name = true;

// The text, into 1024 bytes that end at a guard page.
std::string described() {
  fakes::Guarded memory(1024);
  char *buffer = reinterpret_cast<char *>(memory.last(1024));
  memset(buffer, 'x', 1024);
  buffer[0] = '\0';
  const int length = lpms0w(buffer);
  EXPECT_EQ(static_cast<size_t>(length), strlen(buffer));
  return buffer;
}

class Description : public testing::Test {
 protected:
  void SetUp() override { has_name = true; }
};
using lpms0w_ = Description;

std::string digest(const char *data, long length) {
  fakes::Guarded memory(33);
  char *out = reinterpret_cast<char *>(memory.last(33));
  mdhex(out, data, length);
  return out;
}

}  // namespace

extern "C" int uname(utsname *name) noexcept {
  if (!has_name) {
    errno = EFAULT;
    return -1;
  }
  memset(name, 0, sizeof *name);
  strcpy(name->sysname, "Linux");
  strcpy(name->machine, "x86_64");
  strcpy(name->nodename, "a name that changes");
  strcpy(name->release, "a release that changes");
  return 0;
}

// ---- lpms0w

TEST_F(lpms0w_, tells_system_machine_processor_and_machine_id) {
  fakes::Host host;
  host.file("/proc/cpuinfo",
            "processor\t: 0\nvendor_id\t: Somebody\nmodel\t\t: 7\nmodel name\t: Some CPU: 2.0GHz \n"
            "cpu MHz\t\t: 2595.124\n\nprocessor\t: 1\nmodel name\t: Another\n");
  host.file("/etc/machine-id", "0123456789abcdef0123456789abcdef\n");
  char buffer[1024];
  EXPECT_EQ(lpms0w(buffer), 65);
  EXPECT_STREQ(buffer, "Linux, x86_64, Some CPU: 2.0GHz, 0123456789abcdef0123456789abcdef");
  EXPECT_EQ(host.calls(), (std::vector<std::string>{"open /proc/cpuinfo", "read", "close",
                                                    "open /etc/machine-id", "read", "close"}));
}

TEST_F(lpms0w_, leaves_out_what_is_not_known) {
  fakes::Host host;
  host.missing("/proc/cpuinfo", ENOENT);
  host.file("/etc/machine-id", "id\n");
  EXPECT_EQ(described(), "Linux, x86_64, id");
  host.file("/proc/cpuinfo", "model name\t: Some CPU\n");
  host.missing("/etc/machine-id", ENOENT);
  EXPECT_EQ(described(), "Linux, x86_64, Some CPU");
  for (const char *nothing : {"", "model name", "model name\t:", "model name: \n", "other\n"}) {
    host.file("/proc/cpuinfo", nothing);
    EXPECT_EQ(described(), "Linux, x86_64") << nothing;
  }
  host.file("/etc/machine-id", " \n");
  EXPECT_EQ(described(), "Linux, x86_64");
  has_name = false;
  host.file("/etc/machine-id", "id");
  EXPECT_EQ(described(), "id");
}

TEST_F(lpms0w_, is_empty_when_nothing_is_known) {
  fakes::Host host;
  host.file("/etc/machine-id", "id");
  has_name = false;
  host.fail_always("read", EIO);
  errno = EBUSY;
  EXPECT_EQ(described(), "");
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(host.count("close"), 2);
}

TEST_F(lpms0w_, writes_over_what_the_buffer_held) {
  char buffer[1024] = "earlier text";
  fakes::Host host;
  has_name = false;
  host.missing("/proc/cpuinfo", ENOENT);
  host.missing("/etc/machine-id", ENOENT);
  EXPECT_EQ(lpms0w(buffer), 0);
  EXPECT_STREQ(buffer, "");
}

TEST_F(lpms0w_, never_writes_more_than_1024_bytes) {
  fakes::Host host;
  const std::string start = "Linux, x86_64, ";
  for (const size_t room : {0u, 1u, 2u, 3u, 4u}) {
    const std::string model(1023 - start.size() - room, 'm');
    host.file("/proc/cpuinfo", "model name\t: " + model + "\n");
    host.file("/etc/machine-id", "0123456789");
    EXPECT_EQ(described(), start + model + std::string(", 01234").substr(0, room));
  }
  host.file("/proc/cpuinfo", "model name\t: " + std::string(9000, 'm'));
  EXPECT_EQ(described(), start + std::string(1023 - start.size(), 'm'));
}

TEST_F(lpms0w_, gives_the_same_text_again) { EXPECT_EQ(described(), described()); }

// ---- mdhex

TEST(mdhex, is_the_md5_digest_in_hexadecimal) {
  EXPECT_EQ(digest("", 0), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digest("a", 1), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(digest("abc", 3), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(digest("message digest", 14), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(digest("abcdefghijklmnopqrstuvwxyz", 26), "c3fcd3d76192e4007dfb496cca67e13b");
  const std::string digits =
      "1234567890123456789012345678901234567890"
      "1234567890123456789012345678901234567890";
  EXPECT_EQ(digest(digits.data(), 80), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(mdhex, reads_length_bytes_whatever_they_are) {
  EXPECT_EQ(digest("abcd", 3), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(digest("\0", 1), "93b885adfe0da089cdf634904fd59f71");
  const std::string million(1000000, 'a');
  EXPECT_EQ(digest(million.data(), 1000000), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(mdhex, of_null_or_of_a_negative_length_is_that_of_nothing) {
  EXPECT_EQ(digest(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digest(nullptr, 7), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digest("abc", -1), "d41d8cd98f00b204e9800998ecf8427e");
}
