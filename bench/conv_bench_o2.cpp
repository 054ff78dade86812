#define PLAIN plain_loop_o2
#include "bench/conv_plain.h"
