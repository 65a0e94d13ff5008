// The numbers the error header of the mob_utils module prints ("line N"): one per
// kind of refusal, stable, so that recorded cases and users' scripts can tell
// the refusals apart. New refusals take a new number here.
#pragma once

namespace mob_utils_error {

inline constexpr int kLineBadTimeGrid = 95;  // mob_utils.cpp
inline constexpr int kLineNegativeNsimu = 97;  // mob_utils.cpp
inline constexpr int kLineTablesTooLarge = 150;  // mob_utils.cpp
inline constexpr int kLineTrackOpen = 175;  // mob_utils.cpp
inline constexpr int kLineTrackRead = 178;  // mob_utils.cpp
inline constexpr int kLineTemperature = 262;  // mob_utils.cpp
inline constexpr int kLineAverTrack = 275;  // mob_utils.cpp
inline constexpr int kLineMob = 411;  // mob_utils.cpp
inline constexpr int kLineAverTrackAxis = 528;  // mob_utils.cpp
inline constexpr int kLineMobAxis = 645;  // mob_utils.cpp
inline constexpr int kLineSphereTooSmall = 700;  // mob_utils_scan.cpp
inline constexpr int kLineSphereTooMany = 703;  // mob_utils_scan.cpp
inline constexpr int kLineSphereFile = 725;  // mob_utils_scan.cpp
inline constexpr int kLinePlaneTooSmall = 992;  // mob_utils_scan.cpp
inline constexpr int kLinePlaneTooMany = 995;  // mob_utils_scan.cpp
inline constexpr int kLinePolarEps = 1319;  // mob_utils_scripts.cpp
inline constexpr int kLinePolarPng = 1360;  // mob_utils_scripts.cpp
inline constexpr int kLineSurfaceEps = 1424;  // mob_utils_scripts.cpp
inline constexpr int kLineSurfacePng = 1479;  // mob_utils_scripts.cpp
inline constexpr int kLinePolarPy = 1534;  // mob_utils_scripts.cpp
inline constexpr int kLineSurfacePy = 1580;  // mob_utils_scripts.cpp
inline constexpr int kLineTensorFile = 1600;  // mob_utils_tensor.cpp
inline constexpr int kLineMsdData = 1620;  // mob_utils_msd.cpp
inline constexpr int kLineMsdEps = 1630;  // mob_utils_msd.cpp
inline constexpr int kLineMsdPng = 1640;  // mob_utils_msd.cpp
inline constexpr int kLineMsdPy = 1650;  // mob_utils_msd.cpp
inline constexpr int kLineSummary = 1700;  // mob_utils_summary.cpp

}  // namespace mob_utils_error
