// NumPy: PyArray_CopyInto between arrays of any type and byte order, without an interpreter in
// between.

#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#include <Python.h>
#include <numpy/arrayobject.h>

#include "bench/conv_peers.h"

namespace {

int number_of(const Side &side) {
  switch (side.type) {
    case 'b':
      return side.is_unsigned ? NPY_UINT8 : NPY_INT8;
    case 's':
      return side.is_unsigned ? NPY_UINT16 : NPY_INT16;
    case 'i':
      return side.is_unsigned ? NPY_UINT32 : NPY_INT32;
    case 'l':
      return side.is_unsigned ? NPY_UINT64 : NPY_INT64;
    case 'f':
      return NPY_FLOAT32;
    default:
      return NPY_FLOAT64;
  }
}

// An array over elements that are not its own; it stays until the end.
PyArrayObject *array_over(const Side &side, char *data, size_t n) {
  PyArray_Descr *type = PyArray_DescrFromType(number_of(side));
  if (side.is_big_endian) type = PyArray_DescrNewByteorder(type, NPY_SWAP);
  npy_intp size = static_cast<npy_intp>(n);
  return reinterpret_cast<PyArrayObject *>(PyArray_NewFromDescr(
      &PyArray_Type, type, 1, &size, nullptr, data, NPY_ARRAY_WRITEABLE, nullptr));
}

std::function<void()> run(const Conversion &what, const char *from, char *to, size_t n) {
  PyArrayObject *source = array_over(what.from, const_cast<char *>(from), n);
  PyArrayObject *target = array_over(what.to, to, n);
  return [=] { PyArray_CopyInto(target, source); };
}

bool start() {
  PyConfig config;
  PyConfig_InitIsolatedConfig(&config);
  PyConfig_SetBytesString(&config, &config.program_name, PYTHON);  // where its modules are
  const PyStatus status = Py_InitializeFromConfig(&config);
  PyConfig_Clear(&config);
  if (PyStatus_Exception(status)) return false;
  import_array1(false);
  return true;
}

}  // namespace

std::vector<Peer> numpy() {
  if (!start()) return {};
  return {{"NumPy", "no report", run}};
}
