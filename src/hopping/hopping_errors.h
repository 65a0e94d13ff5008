// The numbers the error header prints ("line N") for the refusals of the hopping
// simulation (under the module name "transport"): one per
// kind of refusal, stable, so that recorded cases and users' scripts can tell
// the refusals apart. New refusals take a new number here.
#pragma once

namespace hopping_error {

inline constexpr int kLineCarrier = 1810;  // hopping_rates.cpp
inline constexpr int kLineRate = 1820;  // hopping_rates.cpp
inline constexpr int kLineNoHop = 1830;  // hopping_rates.cpp
inline constexpr int kLineNoClass = 1840;  // main_kmc.cpp: no pair of molecules, no network
inline constexpr int kLineApart = 1910;  // hopping_exact.cpp
inline constexpr int kLineTrackWrite = 2110;  // hopping_run.cpp
inline constexpr int kLineRatesFile = 2210;  // main_kmc.cpp
inline constexpr int kLineExactFile = 2220;  // main_kmc.cpp
inline constexpr int kLineDriftFile = 2230;  // main_kmc.cpp
inline constexpr int kLineTemperature = 2240;  // main_kmc.cpp
inline constexpr int kLineSlice = 2250;  // main_kmc.cpp
inline constexpr int kLineFieldRange = 2260;  // main_kmc.cpp
inline constexpr int kLineRunTooLong = 2270;  // hopping_checks.cpp
inline constexpr int kLineTemperatures = 2310;  // hopping_series.cpp
inline constexpr int kLineFields = 2320;  // hopping_series.cpp
inline constexpr int kLineTemperatureTable = 2330;  // hopping_series.cpp
inline constexpr int kLineTemperatureScripts = 2340;  // hopping_plots.cpp
inline constexpr int kLineFieldTable = 2350;  // hopping_series.cpp
inline constexpr int kLineFieldScripts = 2360;  // hopping_plots.cpp
inline constexpr int kLineFolderFiles = 2370;  // hopping_folders.cpp
inline constexpr int kLineAnalysis = 2380;  // hopping_folders.cpp

}  // namespace hopping_error
