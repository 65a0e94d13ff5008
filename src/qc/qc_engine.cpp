#include "qc_engine.h"

#include <cctype>
#include <cmath>
#include <string_view>

#include "fileio.h"
#include "qc_errors.h"

namespace qc {

using namespace qc_error;

namespace {

// Bounds of a usable calculation.
constexpr double kMaxCoordinate = 1e5;  // Angstrom
constexpr int kMinMemoryMb = 100;
constexpr int kMaxMemoryMb = 10'000'000;
constexpr int kMaxThreads = 4096;
constexpr int kMaxFrontier = 1000;

// Method and basis names go into the input as quoted strings: letters, digits
// and the punctuation of names such as 6-311++g(d,p) or wb97x-d only.
bool is_name(const std::string& s)
{
    if (s.empty()) return false;
    for (const char c : s)
        if (!std::isalnum(static_cast<unsigned char>(c)) && std::string_view("-+*(),_").find(c) == std::string_view::npos)
            return false;
    return true;
}

[[noreturn]] void refuse(const std::string& why)
{
    fatal(kModule, kLineBadCalculation, 1, "quantum-chemistry calculation: " + why + "\n");
}
}  // namespace

int electron_count(const Geometry& atoms, int charge)
{
    int n = -charge;
    for (const Atom& a : atoms) n += a.z;
    return n;
}

int alpha_count(int electrons, int multiplicity)
{
    const int unpaired = multiplicity - 1;
    if (electrons < 0 || unpaired < 0 || unpaired > electrons || (electrons - unpaired) % 2 != 0) return -1;
    return (electrons + unpaired) / 2;
}

std::string element_symbol(int z)
{
    if (z < 1 || z >= kNumElements) return {};
    std::string s = Elements_m[z].symbol;
    return trim(s);
}

void check_calculation(const Calculation& calc)
{
    if (calc.atoms.empty()) refuse("no atoms");
    for (size_t i = 0; i < calc.atoms.size(); ++i) {
        const Atom& a = calc.atoms[i];
        if (element_symbol(a.z).empty()) refuse(strprintf("atom %zu has atomic number %d, which is no element", i + 1, a.z));
        for (const double c : a.x)
            if (!(std::fabs(c) <= kMaxCoordinate))
                refuse(strprintf("atom %zu has the coordinate %g, not a finite number of at most %g A", i + 1, c, kMaxCoordinate));
    }
    if (calc.kind == CalcKind::DimerMatrices && (calc.atoms_a < 1 || calc.atoms_a >= static_cast<int>(calc.atoms.size())))
        refuse(strprintf("a dimer of %zu atoms cannot have %d of them in its first molecule", calc.atoms.size(), calc.atoms_a));
    const int electrons = electron_count(calc.atoms, calc.charge);
    if (alpha_count(electrons, calc.multiplicity) < 0)
        refuse(strprintf("%d electrons (charge %d) cannot have multiplicity %d", electrons, calc.charge, calc.multiplicity));
    if (calc.kind == CalcKind::Reorganisation) {
        const int ion_charge = calc.charge + (calc.carrier == Carrier::Hole ? 1 : -1);
        if (alpha_count(electron_count(calc.atoms, ion_charge), calc.ion_multiplicity) < 0)
            refuse(strprintf("the ion (charge %d, %d electrons) cannot have multiplicity %d", ion_charge,
                             electron_count(calc.atoms, ion_charge), calc.ion_multiplicity));
    }
    if (!is_name(calc.method)) refuse("the method '" + calc.method + "' is no method name");
    if (!is_name(calc.basis)) refuse("the basis '" + calc.basis + "' is no basis set name");
    if (calc.memory_mb < kMinMemoryMb || calc.memory_mb > kMaxMemoryMb)
        refuse(strprintf("memory of %d MB is outside %d to %d MB", calc.memory_mb, kMinMemoryMb, kMaxMemoryMb));
    if (calc.threads < 1 || calc.threads > kMaxThreads)
        refuse(strprintf("%d threads is outside 1 to %d", calc.threads, kMaxThreads));
    if (calc.frontier < 0 || calc.frontier > kMaxFrontier)
        refuse(strprintf("%d frontier orbitals is outside 0 to %d", calc.frontier, kMaxFrontier));
}

}  // namespace qc
