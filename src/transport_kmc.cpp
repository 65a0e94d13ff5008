// Track files, the trajectories' generators, alias tables and the walk's layout.
#include "transport_kmc.h"

#include <sys/statvfs.h>

#include <numeric>

namespace kmc {

namespace {

const char* const kModule = "transport";
constexpr int kLineRoom = 2010;
const char* const kHeader = "#      t,%s         x,angs         y,angs         z,angs         r2,A^2     istep\n";
const char* const kRow = "%14.6e %14.6e %14.6e %14.6e %14.6e  %lld\n";
const char* const kNoRoom =
    "%ld track files of %ld rows need about %.3g MB and %ld files on the disk of %s, which has %.3g MB and %.0f "
    "files free: free some space, or write fewer or shorter trajectories\n";
// Widest row: five numbers of 14 characters and their blanks, a hop count of
// up to 19 digits, the line end.
constexpr double kRowBytes = 5 * 15 + 1 + 19 + 1;
constexpr double kHeaderBytes = 82;  // the header line

}  // namespace

// ---------------------------------------------------------------- track files

TrackWriter::TrackWriter(const std::string& name, const std::string& time_label) : out_(name)
{
    out_.print(kHeader, time_label.c_str());
}

void TrackWriter::row(double t, const Vec3& x, long long hops)
{
    out_.print(kRow, t, x[0], x[1], x[2], x[0] * x[0] + x[1] * x[1] + x[2] * x[2], hops);
}

std::string track_file_name(const std::string& dir, long number)
{
    return strprintf("%s/track/track_%04ld.dat", dir.c_str(), number);
}

long track_rows(double tsimu, double tsnap)
{
    return static_cast<long>(tsimu / tsnap + 0.5) + 1;
}

// Each file takes whole blocks of the disk.
void check_room(const std::string& dir, long files, long rows, double other_bytes)
{
    struct statvfs st {};
    if (statvfs(dir.c_str(), &st) != 0) return;  // the writes will tell
    const double block = st.f_frsize > 0 ? static_cast<double>(st.f_frsize) : 4096.0;
    const double per_file = std::ceil((kHeaderBytes + kRowBytes * static_cast<double>(rows)) / block) * block;
    const double need = per_file * static_cast<double>(files) + std::ceil(other_bytes / block) * block, have = static_cast<double>(st.f_bavail) * block;
    const bool inodes = st.f_files == 0 || static_cast<double>(st.f_favail) >= static_cast<double>(files);
    if (need > have || !inodes)
        fatal(kModule, kLineRoom, 1,
              strprintf(kNoRoom, files, rows, need / 1e6, files, dir.c_str(), have / 1e6, static_cast<double>(st.f_favail)));
}

// ---------------------------------------------------------------- generators

Random::Random(std::uint64_t seed, std::uint64_t trajectory)
{
    std::seed_seq seq{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                      static_cast<std::uint32_t>(trajectory), static_cast<std::uint32_t>(trajectory >> 32)};
    gen_.seed(seq);
}

// ---------------------------------------------------------------- alias tables

// Entries are scaled to mean 1 and paired: each entry below 1 is topped up by
// one above 1, which becomes its alias.
AliasTable::AliasTable(const std::vector<double>& weights)
    : threshold_(weights.size(), 1.0), alias_(weights.size())
{
    std::iota(alias_.begin(), alias_.end(), 0);
    const double sum = std::accumulate(weights.begin(), weights.end(), 0.0);
    std::vector<double> p(weights.size());
    std::vector<int> small, large;
    for (size_t k = 0; k < p.size(); ++k) {
        p[k] = std::max(weights[k], 0.0) * static_cast<double>(p.size()) / sum;
        (p[k] < 1.0 ? small : large).push_back(static_cast<int>(k));
    }
    while (!small.empty() && !large.empty()) {
        const int s = small.back(), l = large.back();
        small.pop_back();
        threshold_[s] = p[s];
        alias_[s] = l;
        p[l] = (p[l] + p[s]) - 1.0;
        if (p[l] < 1.0) {
            large.pop_back();
            small.push_back(l);
        }
    }
    // What is left is 1 up to rounding: kept always.
}

std::vector<double> AliasTable::probabilities() const
{
    const double n = static_cast<double>(threshold_.size());
    std::vector<double> p(threshold_.size(), 0.0);
    for (size_t k = 0; k < p.size(); ++k) {
        const double keep = std::clamp(threshold_[k], 0.0, 1.0);
        p[k] += keep / n;
        p[static_cast<size_t>(alias_[k])] += (1.0 - keep) / n;
    }
    return p;
}

// ---------------------------------------------------------------- the walk

Walk::Walk(const Transport& t, const std::vector<network::Hop>& hops, const std::vector<double>& pi)
    : latt_(t.latt), start_([&pi] {
          std::vector<double> w(pi);
          for (double& x : w) x = std::max(x, 0.0);  // a solver's -1e-17 is 0
          return w;
      }())
{
    const size_t n = static_cast<size_t>(t.mol_count);
    for (size_t m = 0; m < n; ++m) centre_.push_back(vec3_at(t.mol_com, m));
    std::vector<std::vector<const network::Hop*>> from(n);
    for (const network::Hop& h : hops) from[h.from].push_back(&h);
    for (size_t m = 0; m < n; ++m) {
        std::vector<double> rates;
        for (const network::Hop* h : from[m]) rates.push_back(h->rate);
        const AliasTable table(rates);
        site_.push_back({static_cast<int>(entry_.size()), static_cast<int>(rates.size()),
                         1.0 / std::accumulate(rates.begin(), rates.end(), 0.0)});
        for (size_t k = 0; k < rates.size(); ++k)
            entry_.push_back({table.threshold()[k], table.alias()[k], from[m][k]->to, from[m][k]->cell});
    }
}

Vec3 Walk::position(int site, const Cell3& cell, int start) const
{
    const Vec3 shift = mat_vec_mul(latt_, {double(cell[0]), double(cell[1]), double(cell[2])});
    Vec3 x;
    for (int k = 0; k < 3; ++k) x[k] = centre_[site][k] + shift[k] - centre_[start][k];
    return x;
}

}  // namespace kmc
