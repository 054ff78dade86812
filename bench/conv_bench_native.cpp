#define PLAIN plain_loop_native
#include "bench/conv_plain.h"
