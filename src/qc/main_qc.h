// The quantum-chemistry stage's entry function: options, help text and the run.
#pragma once

// Parses the options and runs; returns the exit status (-1 for a failed run).
int kelta_qc_main(int argc, char** argv);
