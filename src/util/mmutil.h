// The lowest layer of the suite, shared by every module and linking nothing of
// the project: the fatal path (mmutil_fatal.h), files and the checked writer
// (mmutil_file.h), text (mmutil_text.h), numbers (mmutil_numeric.h) and, in
// units.h, the physical constants and unit conversions. Names follow the suite's
// historic helpers (LinearRegression, file_exists, sg_trim), which other tools
// of the suite share.
#pragma once

#include "mmutil_fatal.h"
#include "mmutil_file.h"
#include "mmutil_numeric.h"
#include "mmutil_text.h"
#include "units.h"
