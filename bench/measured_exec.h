#pragma once

// A program's own peak resident size and CPU time, as wait4 gives them for a child of a small
// process. Asked of a child forked from this large one, ru_maxrss starts at everything the
// benchmark holds (Linux keeps the forked copy's high-water mark across exec), so the road's
// zthost runs as the child of a fresh zt_bench started just for that:
//
//   zt_bench --zt-measure-exec FD PROGRAM [ARGS...]
//
// runs PROGRAM, waits for it and writes "PEAK_KIB CPU_SECONDS EXIT_CODE" to the descriptor FD
// (exit code -1 when a signal ended it), before anything else of zt_bench is set up.
constexpr char kMeasureExecFlag[] = "--zt-measure-exec";

// main() of that mode: argv[1] is the flag.
int measuredExecMain(int argc, char **argv);
