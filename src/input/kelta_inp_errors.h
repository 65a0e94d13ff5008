// The numbers the error header of the kelta_inp module prints ("line N"): one
// per kind of refusal, stable, so that recorded cases and users' scripts can
// tell the refusals apart. New refusals take a new number here.
#pragma once

namespace kelta_inp_error {

inline constexpr int kLineOpen = 120;          // the input file cannot be opened
inline constexpr int kLineBadChoice = 390;     // chargetype, evc_type or ratetype not one of the choices
inline constexpr int kLineTemperature = 452;   // temp not finite and positive
inline constexpr int kLineLength = 455;        // a length (lat_cutoff, bond_dis_scale) out of range
inline constexpr int kLineUnknownKey = 460;    // a key the block does not know
inline constexpr int kLineMoleculeNone = 468;  // molecule = with no count
inline constexpr int kLineMoleculeNames = 470; // molecule = with fewer names than its count
inline constexpr int kLineEngine = 560;        // compute_engine and qc_exe disagree

}  // namespace kelta_inp_error
