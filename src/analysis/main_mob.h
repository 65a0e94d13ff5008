// The entry function: options, help text and the run sequence.
#pragma once

#include "mob_utils.h"

// Parses the options and runs the whole sequence; returns the exit status
// (-1 for a failed run). main() calls it with the run's own random seeds.
int kelta_mob_main(int argc, char** argv, const RandomSeeds& seeds = {});
