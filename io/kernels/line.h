// What every kernel for lines does around its copying. Included within the unnamed namespace and
// the target region of a file that provides
//
//   copy_line(to, from, limit)  copies the bytes before the first newline or NUL among the first
//                               `limit`, or all of these, and a NUL behind them; returns how many
//                               it copied. Reads nothing behind the limit, and writes nothing
//                               behind the NUL.

INLINE int read_line(GxFile *file, char *buffer, int length) {
  const int32_t pos = file->pos;
  const int32_t remaining = file->size - pos;
  const int32_t limit = remaining < length - 1 ? remaining : length - 1;
  if (limit <= 0) {  // no data, no room, or a size beyond 31 bits
    buffer[0] = '\0';
    return 0;
  }
  const char *from = file->data + pos;
  const auto n = static_cast<int32_t>(copy_line(buffer, from, static_cast<size_t>(limit)));
  if (n < limit && from[n] == '\n') {  // read over; a NUL is not
    file->pos = pos + n + 1;
    return 1;
  }
  file->pos = pos + n;
  if (n == length - 1) return 2;
  return n > 0 ? 1 : 0;
}
