#include "common/streams.h"
#include "run.h"

int main(int argc, char **argv) { return streams_complete() ? run_main(argc, argv) : 1; }
