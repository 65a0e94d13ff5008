// The numbers the error header prints ("line N") for the refusals of the
// quantum-chemistry code (module "qc"): one per kind of refusal, stable, so that
// recorded cases and users' scripts can tell the refusals apart. New refusals
// take a new number here.
#pragma once

namespace qc_error {

inline constexpr int kLineBadCalculation = 101;  // qc_engine.cpp
inline constexpr int kLineResultsOpen = 201;     // qc_matrix.cpp
inline constexpr int kLineResultsFormat = 202;   // qc_matrix.cpp
inline constexpr int kLineResultsContent = 203;  // qc_matrix.cpp
inline constexpr int kLineDirectory = 301;       // qc_psi4.cpp
inline constexpr int kLineInput = 302;           // qc_psi4.cpp
inline constexpr int kLineResults = 303;         // qc_psi4.cpp
inline constexpr int kLineSizes = 401;           // qc_projection.cpp
inline constexpr int kLineOrbital = 402;         // qc_projection.cpp
inline constexpr int kLineNorm = 403;            // qc_projection.cpp
inline constexpr int kLineEngine = 510;          // qc_stage.cpp: an engine other than psi4
inline constexpr int kLineCarrier = 520;         // qc_stage.cpp: charge.inp names no carrier
inline constexpr int kLineGeometry = 530;        // qc_stage.cpp: a dimers/ file missing or unreadable
inline constexpr int kLineDimer = 540;           // qc_stage.cpp: a class file that is not its two molecules
inline constexpr int kLineCouplings = 550;       // qc_couplings.cpp: the couplings file unreadable or not the dimers'
inline constexpr int kLineUnfilled = 560;        // qc_stage.cpp: a class or lambda whose calculation did not finish
inline constexpr int kLineTask = 570;            // main_qc.cpp: -task outside the plan
inline constexpr int kLineScript = 580;          // qc_jobs.cpp: the job script, or an unknown scheduler
inline constexpr int kLineFailed = 590;          // main_qc.cpp: calculations failed

}  // namespace qc_error
