// netCDF, HDF5, VOLK and Orc. They are loaded where they are installed, and the few functions of
// theirs that are called are declared here: netCDF exports its converters without a header.

#include "bench/conv_peers.h"

#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

class Library {
 public:
  explicit Library(const char *file) : handle_(dlopen(file, RTLD_NOW)) {}
  bool found() const { return handle_ != nullptr; }
  // A function or a variable; null where there is none.
  template <typename Type>
  Type *symbol(const std::string &name) const {
    return reinterpret_cast<Type *>(dlsym(handle_, name.c_str()));
  }

 private:
  void *handle_;
};

const Library netcdf("libnetcdf.so.19"), hdf5("libhdf5_serial.so.103"), volk("libvolk.so.2.5"),
    orc("liborc-0.4.so.0");

using Run = std::function<void()>;

// ---- netCDF ----------------------------------------------------------------------------------

std::string netcdf_type(const Side &side) {
  if (side.type == 'b') return side.is_unsigned ? "uchar" : "schar";
  std::string name = side.is_unsigned ? "u" : "";
  switch (side.type) {
    case 's':
      return name += "short";
    case 'i':
      return name += "int";
    case 'l':
      return name += "longlong";
    case 'f':
      return "float";
    default:
      return "double";
  }
}

Run netcdf_run(const Conversion &what, const char *from, char *to, size_t n) {
  const auto external = [](const Side &side) { return side.is_big_endian || side.type == 'b'; };
  if (external(what.from) && !what.to.is_big_endian) {
    const auto get = netcdf.symbol<int(const void **, size_t, void *)>(
        "ncx_getn_" + netcdf_type(what.from) + "_" + netcdf_type(what.to));
    if (get == nullptr) return {};
    return [=] {
      const void *cursor = from;
      get(&cursor, n, to);
    };
  }
  if (external(what.to) && !what.from.is_big_endian) {
    const auto put = netcdf.symbol<int(void **, size_t, const void *, void *)>(
        "ncx_putn_" + netcdf_type(what.to) + "_" + netcdf_type(what.from));
    if (put == nullptr) return {};
    return [=] {
      void *cursor = to;
      put(&cursor, n, from, nullptr);
    };
  }
  return {};
}

// ---- HDF5 ------------------------------------------------------------------------------------

int64_t hdf5_type(const Side &side) {
  const char *kind = floating(side.type) ? "IEEE_F" : side.is_unsigned ? "STD_U" : "STD_I";
  const auto *type =
      hdf5.symbol<int64_t>("H5T_" + std::string(kind) + std::to_string(8 * size_of(side.type)) +
                           (side.is_big_endian ? "BE_g" : "LE_g"));
  return type != nullptr ? *type : -1;
}

// Converts in one buffer, which the source is copied into first; the copying counts.
Run hdf5_run(const Conversion &what, const char *from, char *to, size_t n) {
  const auto convert =
      hdf5.symbol<int(int64_t, int64_t, size_t, void *, void *, int64_t)>("H5Tconvert");
  const auto open = hdf5.symbol<int()>("H5open");
  if (convert == nullptr || open == nullptr || open() < 0) return {};
  const int64_t from_type = hdf5_type(what.from), to_type = hdf5_type(what.to);
  const size_t bytes = n * static_cast<size_t>(size_of(what.from.type));
  return [=] {
    std::memcpy(to, from, bytes);
    convert(from_type, to_type, n, to, nullptr, 0);
  };
}

// ---- VOLK ------------------------------------------------------------------------------------

std::string volk_type(const Side &side) {
  return std::to_string(8 * size_of(side.type)) + (floating(side.type) ? "f" : "i");
}

// Its functions are variables, which find the processor's kernel at the first call.
Run volk_run(const Conversion &what, const char *from, char *to, size_t n) {
  const auto count = static_cast<unsigned>(n);
  if (what.from.type == what.to.type) {  // reverses in place
    const size_t size = static_cast<size_t>(size_of(what.to.type));
    const auto swap =
        volk.symbol<void (*)(void *, unsigned)>("volk_" + std::to_string(8 * size) + "u_byteswap");
    if (swap == nullptr) return {};
    std::memcpy(to, from, n * size);
    return [=] { (*swap)(to, count); };
  }
  if (what.from.is_big_endian || what.to.is_big_endian) return {};
  if (what.from.is_unsigned || what.to.is_unsigned) return {};
  if (floating(what.from.type) != floating(what.to.type)) {
    const auto scale = volk.symbol<void (*)(void *, const void *, float, unsigned)>(
        "volk_" + volk_type(what.from) + "_s32f_convert_" + volk_type(what.to));
    if (scale == nullptr) return {};
    return [=] { (*scale)(to, from, 1, count); };
  }
  const auto convert = volk.symbol<void (*)(void *, const void *, unsigned)>(
      "volk_" + volk_type(what.from) + "_convert_" + volk_type(what.to));
  if (convert == nullptr) return {};
  return [=] { (*convert)(to, from, count); };
}

// ---- Orc -------------------------------------------------------------------------------------

struct Step {
  std::string opcode;
  int size;  // bytes of what it makes
};

char orc_letter(int size) { return " bw l   q"[size]; }

// An integer of one size to another, one doubling or halving at a time; halves saturate.
void resize(std::vector<Step> &steps, int size, int wanted, bool was_unsigned, bool is_unsigned) {
  while (size != wanted) {
    const int next = size < wanted ? 2 * size : size / 2;
    std::string opcode = "conv";
    if (next < size) opcode += was_unsigned ? 'u' : 's';
    opcode += is_unsigned ? 'u' : 's';
    if (next < size) opcode += 's';
    steps.push_back({opcode + orc_letter(size) + orc_letter(next), next});
    was_unsigned = is_unsigned;
    size = next;
  }
}

// Numbers with a point and signed integers of four bytes are what it converts into each other.
std::vector<Step> orc_steps(const Conversion &what) {
  const auto &[from, to] = what;
  const int from_size = size_of(from.type), to_size = size_of(to.type);
  const auto beyond = [](const Side &side) {
    return side.type == 'l' || (side.type == 'i' && side.is_unsigned);
  };
  std::vector<Step> steps;
  if (from.is_big_endian) steps.push_back({std::string("swap") + orc_letter(from_size), from_size});
  if (floating(from.type) && floating(to.type)) {
    if (from.type != to.type) steps.push_back({std::string("conv") + from.type + to.type, to_size});
  } else if (floating(to.type)) {
    if (beyond(from)) return {};
    resize(steps, from_size, 4, from.is_unsigned, from.is_unsigned);
    steps.push_back({std::string("convl") + to.type, to_size});
  } else if (floating(from.type)) {
    if (beyond(to)) return {};
    steps.push_back({std::string("conv") + from.type + "l", 4});
    resize(steps, 4, to_size, false, to.is_unsigned);
  } else {
    resize(steps, from_size, to_size, from.is_unsigned, to.is_unsigned);
  }
  if (to.is_big_endian) steps.push_back({std::string("swap") + orc_letter(to_size), to_size});
  return steps;
}

Run orc_run(const Conversion &what, const char *from, char *to, size_t n) {
  const std::vector<Step> steps = orc_steps(what);
  if (steps.empty()) return {};
  orc.symbol<void()>("orc_init")();
  // The program and what runs it stay until the end.
  void *program = orc.symbol<void *()>("orc_program_new")();
  const auto declare = [&](const std::string &kind, int size, const std::string &name) {
    orc.symbol<int(void *, int, const char *)>("orc_program_add_" + kind)(program, size,
                                                                          name.c_str());
  };
  declare("source", size_of(what.from.type), "s1");
  declare("destination", size_of(what.to.type), "d1");
  std::string at = "s1";
  for (size_t k = 0; k < steps.size(); ++k) {
    const std::string next =
        k + 1 == steps.size() ? "d1" : std::string("t") + std::to_string(k + 1);
    if (next != "d1") declare("temporary", steps[k].size, next);
    orc.symbol<void(void *, const char *, const char *, const char *)>("orc_program_append_ds_str")(
        program, steps[k].opcode.c_str(), next.c_str(), at.c_str());
    at = next;
  }
  constexpr int kFirstFailure = 0x100;
  if (orc.symbol<int(void *)>("orc_program_compile")(program) >= kFirstFailure) return {};
  void *executor = orc.symbol<void *(void *)>("orc_executor_new")(program);
  orc.symbol<void(void *, int)>("orc_executor_set_n")(executor, static_cast<int>(n));
  const auto set_array =
      orc.symbol<void(void *, const char *, void *)>("orc_executor_set_array_str");
  set_array(executor, "s1", const_cast<char *>(from));
  set_array(executor, "d1", to);
  const auto run = orc.symbol<void(void *)>("orc_executor_run");
  return [=] { run(executor); };
}

}  // namespace

std::vector<Peer> installed_peers() {
  std::vector<Peer> peers;
  if (netcdf.found())
    peers.push_back({"netCDF",
                     "big-endian and bytes only; reports what is out of range, not what "
                     "is inexact",
                     netcdf_run});
  if (hdf5.found())
    peers.push_back({"HDF5",
                     "converts in one buffer, the copy into it counts here; no report but "
                     "by a callback for each element",
                     hdf5_run});
#ifdef HAVE_NUMPY
  for (const Peer &peer : numpy()) peers.push_back(peer);
#endif
#ifdef HAVE_OPENCV
  for (const Peer &peer : opencv()) peers.push_back(peer);
#endif
  if (volk.found())
    peers.push_back({"VOLK",
                     "reverses in place; else signed, host order, at most 32 bits or "
                     "floating; rounds; no report",
                     volk_run});
  if (orc.found())
    peers.push_back({"Orc",
                     "compiles at run time; no unsigned int nor long to or from floating; "
                     "no report",
                     orc_run});
  return peers;
}
