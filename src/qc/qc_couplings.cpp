#include "qc_couplings.h"

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include "mmutil.h"
#include "qc_engine.h"
#include "qc_errors.h"

namespace qc {

using namespace qc_error;

namespace {

// Comment lines of an earlier filling start so; they are replaced, not repeated.
const char* const kOwnComment = "# kelta_qc";

[[noreturn]] void refuse(const std::string& file, int line, const std::string& why)
{
    fatal(kModule, kLineCouplings, 1, line > 0 ? strprintf("%s line %d: ", file.c_str(), line) + why + "\n" : file + ": " + why + "\n");
}

// The blank-separated words of text with where each begins.
std::vector<std::pair<size_t, std::string>> words(const std::string& text)
{
    std::vector<std::pair<size_t, std::string>> w;
    for (size_t at = 0; at < text.size();) {
        const size_t begin = text.find_first_not_of(" \t\r", at);
        if (begin == std::string::npos) break;
        size_t end = text.find_first_of(" \t\r", begin);
        if (end == std::string::npos) end = text.size();
        w.emplace_back(begin, text.substr(begin, end - begin));
        at = end;
    }
    return w;
}

bool whole(const std::string& s, int& v)
{
    long l = 0;
    if (!parse_long(s, l) || l < -1000000 || l > 1000000) return false;
    v = static_cast<int>(l);
    return true;
}

std::string key_of(const std::string& line)
{
    const size_t eq = line.find('=');
    if (eq == std::string::npos) return {};
    std::string key = line.substr(0, eq);
    return trim(key);
}

}  // namespace

CouplingsText read_couplings_text(const std::string& file)
{
    std::ifstream in;
    if (is_regular_file(file)) in.open(file, std::ios::binary);
    if (!in.is_open()) fatal(kModule, kLineCouplings, -1, "the couplings file " + file + " cannot be read\n", "Failed to open input file " + file + "\n");
    CouplingsText c;
    c.file = file;
    const std::string all{std::istreambuf_iterator<char>(in), {}};
    std::istringstream s(all);
    for (std::string line; std::getline(s, line);) c.lines.push_back(line);
    c.final_newline = all.empty() || all.back() == '\n';

    std::map<std::string, size_t> column;  // from the header comment
    size_t columns = 0;
    for (size_t k = 0; k < c.lines.size(); ++k) {
        const std::string& raw = c.lines[k];
        const int lineno = static_cast<int>(k) + 1;
        const size_t hash = raw.find('#');
        const std::string body = raw.substr(0, hash);  // positions are those of the line
        std::string trimmed = body;
        if (trim(trimmed).empty()) {
            // The header comment names the columns of the class lines.
            if (hash == std::string::npos) continue;
            const auto w = words(raw.substr(hash + 1));
            if (w.empty() || w[0].second != "class" || w.back().second != "V_meV") continue;
            column.clear();
            for (size_t i = 0; i < w.size(); ++i) column[w[i].second] = i;
            columns = w.size();
            continue;
        }
        const std::string key = key_of(body);
        if (key == "lambda_meV") {
            c.lambda_line = static_cast<int>(k);
            continue;
        }
        if (key == "carrier") {
            std::string v = body.substr(body.find('=') + 1);
            c.carrier = trim(v);
            continue;
        }
        if (!key.empty()) continue;  // the other settings stay as they are
        if (columns == 0)
            refuse(file, lineno, "a class line before the header comment that names the columns (# class mol_i mol_j na nb nc ... V_meV)");
        for (const char* name : {"class", "mol_i", "mol_j", "na", "nb", "nc"})
            if (!column.count(name)) refuse(file, lineno, std::string("the header comment names no column ") + name);
        const auto w = words(body);
        if (w.size() != columns)
            refuse(file, lineno, strprintf("%zu columns where the header comment names %zu: %s", w.size(), columns, trimmed.c_str()));
        ClassRow r;
        r.line = static_cast<int>(k);
        bool ok = whole(w[column["class"]].second, r.cls) && whole(w[column["mol_i"]].second, r.mol_i) &&
                  whole(w[column["mol_j"]].second, r.mol_j);
        static const char* const cell_columns[] = {"na", "nb", "nc"};
        for (int a = 0; a < 3 && ok; ++a) ok = whole(w[column[cell_columns[a]]].second, r.cell[a]);
        if (!ok || r.cls < 1 || r.mol_i < 1 || r.mol_j < 1) refuse(file, lineno, "not a class line: " + trimmed);
        if (column.count("d_centre_A")) r.d_centre = std::atof(w[column["d_centre_A"]].second.c_str());
        const auto& v = w[column["V_meV"]];
        r.v_begin = v.first;
        r.v_end = v.first + v.second.size();
        for (const ClassRow& earlier : c.rows)
            if (earlier.cls == r.cls) refuse(file, lineno, strprintf("class %d given twice", r.cls));
        c.rows.push_back(r);
    }
    if (c.rows.empty()) refuse(file, 0, "no class line (kelta_kmc -pairs writes one per class of pairs)");
    return c;
}

std::string filled_text(const CouplingsText& c, const Filling& f)
{
    std::vector<std::string> lines = c.lines;
    std::vector<bool> drop(lines.size(), false);
    for (size_t k = 0; k < lines.size(); ++k) {
        if (lines[k].rfind(kOwnComment, 0) == 0) drop[k] = true;
        if (!f.site_meV.empty() && key_of(lines[k].substr(0, lines[k].find('#'))) == "site_meV") drop[k] = true;
    }
    for (size_t r = 0; r < c.rows.size() && r < f.V_meV.size(); ++r) {
        if (!std::isfinite(f.V_meV[r])) continue;
        const ClassRow& row = c.rows[r];
        std::string& line = lines[static_cast<size_t>(row.line)];
        // Right-aligned in the field that runs from one blank after the previous word
        // to the end of the old value, so the columns stay in line.
        const size_t previous = line.find_last_not_of(" \t", row.v_begin == 0 ? 0 : row.v_begin - 1);
        const size_t begin = previous == std::string::npos || row.v_begin == 0 ? row.v_begin : previous + 2;
        std::string value = strprintf("%.3f", f.V_meV[r]);
        const size_t width = row.v_end - begin;
        if (value.size() < width) value.insert(0, width - value.size(), ' ');
        line.replace(begin, row.v_end - begin, value);
    }
    std::vector<std::string> added = f.comments;
    for (size_t m = 0; m < f.site_meV.size(); ++m) added.push_back(strprintf("site_meV = %zu %.3f", m + 1, f.site_meV[m]));
    std::string out;
    bool placed = false;
    for (size_t k = 0; k < lines.size(); ++k) {
        if (drop[k]) continue;
        if (static_cast<int>(k) == c.lambda_line && std::isfinite(f.lambda_meV)) {
            out += strprintf("lambda_meV = %.1f\n", f.lambda_meV);
        } else {
            out += lines[k];
            if (k + 1 < lines.size() || c.final_newline) out += '\n';
        }
        if (static_cast<int>(k) == c.lambda_line || (c.lambda_line < 0 && k == 0)) {
            for (const std::string& a : added) out += a + "\n";
            placed = true;
        }
    }
    if (!placed)
        for (const std::string& a : added) out += a + "\n";
    return out;
}

}  // namespace qc
