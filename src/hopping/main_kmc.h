// The hopping simulation's entry function: options, help text and the run.
#pragma once

// Parses the options and runs; returns the exit status (-1 for a failed run).
int kelta_kmc_main(int argc, char** argv);
