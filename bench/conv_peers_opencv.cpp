// OpenCV: Mat::convertTo between matrices of one row.

#include <cstring>
#include <opencv2/core.hpp>

#include "bench/conv_peers.h"

namespace {

// Its name for a type, or -1.
int depth_of(const Side &side) {
  if (side.is_big_endian) return -1;
  switch (side.type) {
    case 'b':
      return side.is_unsigned ? CV_8U : CV_8S;
    case 's':
      return side.is_unsigned ? CV_16U : CV_16S;
    case 'i':
      return side.is_unsigned ? -1 : CV_32S;
    case 'f':
      return CV_32F;
    case 'd':
      return CV_64F;
    default:
      return -1;
  }
}

std::function<void()> run(const Conversion &what, const char *from, char *to, size_t n) {
  const int from_depth = depth_of(what.from), to_depth = depth_of(what.to);
  if (from_depth < 0 || to_depth < 0) return {};
  const auto count = static_cast<int>(n);
  const cv::Mat source(1, count, CV_MAKETYPE(from_depth, 1), const_cast<char *>(from));
  const cv::Mat target(1, count, CV_MAKETYPE(to_depth, 1), to);
  return [=]() mutable { source.convertTo(target, to_depth); };
}

}  // namespace

std::vector<Peer> opencv() {
  cv::setNumThreads(1);
  return {{"OpenCV", "host order only, no unsigned int, no long; rounds; no report", run}};
}
