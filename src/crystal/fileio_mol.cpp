// MDL molfile reader (V2000 fixed columns and V3000 blocks): one molecule's
// atom count, elements and Cartesian coordinates; bonds are read past.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "fileio.h"
#include "fileio_errors.h"

using namespace fileio_error;

namespace {

// Characters [pos, pos + n) of a fixed-column line; short lines give less.
std::string column(const std::string& s, size_t pos, size_t n)
{
    return pos < s.size() ? s.substr(pos, n) : std::string();
}

[[noreturn]] void mdl_fatal(int line, const std::string& text)
{
    fatal("fileio", line, 1, "WARNING: Problems reading " + text);
}

void check_counts_line(const std::string& counts)
{
    if (counts.size() < 6)
        mdl_fatal(kLineCounts,
                  "a MDL file\n         Cannot read atom and bond count\n"
                  "         Expected standard 6 character atom and bond count\n");
    if (std::atoi(column(counts, 6, 3).c_str()) > 0)
        mdl_fatal(kLineAtomList,
                  "the Count line of an MDL file\n         There may be erroneous addition spaces or\n"
                  "         the file may contains Atom Lists, which are ignored\n");
    if (counts.size() > 14) {
        const int chiral = std::atoi(column(counts, 12, 3).c_str());
        if (chiral > 1)
            std::printf("WARNING: The Chiral Flag should be either 0 or 1. The value of %d will be ignored.\n",
                        chiral);
    }
}

bool is_v30(const std::vector<std::string>& tok) { return tok.size() >= 2 && tok[0] == "M" && tok[1] == "V30"; }
bool is_end(const std::vector<std::string>& tok) { return tok.size() >= 3 && tok[2] == "END"; }
bool is_begin(const std::vector<std::string>& tok) { return tok.size() >= 4 && tok[2] == "BEGIN"; }
}  // namespace

bool LineInput::get(std::string& s)
{
    if (!std::getline(in_, s)) return false;
    if (!s.empty() && s.back() == '\r') s.pop_back();
    ++line_;
    return true;
}

void FileIO::read_data_mol(const char* filename, int index, bool binfo)
{
    std::ifstream in(filename);
    if (!in || !is_regular_file(filename)) fatal("fileio", kLineMolOpen, -1, "", "Failed to open input file \"" + std::string(filename) + "\"\n");
    if (binfo) std::printf("Reading molecular file \"%s\"... ", filename);
    if (index >= static_cast<int>(mol_natoms.size())) resize_mol_slots(index + 1);
    mol_natoms[index] = 0;
    mol_atypes[index].clear();
    mol_x[index].clear();

    LineInput lines(in, filename);
    std::string s;
    for (int h = 0; h < 3; ++h) lines.get(s);  // name, program, comment
    std::string counts;
    lines.get(counts);
    check_counts_line(counts);
    if (counts.find("V3000") != std::string::npos)
        ReadV3000Block(lines, index, binfo);
    else
        read_mol_v2000(lines, counts, index);
    mol_x_s[index].resize(mol_x[index].size());  // filled by the dispatch
}

void FileIO::read_mol_v2000(LineInput& in, const std::string& counts, int index)
{
    const int n = std::max(0, std::atoi(column(counts, 0, 3).c_str()));
    std::string s;
    for (int a = 0; a < n; ++a) {
        if (!in.get(s))
            mdl_fatal(kLineAtoms, "a MDL file\n         Not enough atoms to match atom count (" +
                                      std::to_string(n) + ") in counts line\n");
        for (int d = 0; d < 3; ++d) add_coordinate(in, index, std::atof(column(s, 10 * d, 10).c_str()));
        mol_atypes[index].push_back(find_element_index_from_name(column(s, 31, 3).c_str()));
    }
    mol_natoms[index] = n;
}

void FileIO::add_coordinate(const LineInput& in, int index, double v)
{
    check_finite(in.name(), in.line(), "atom coordinate", v, kMaxLength);
    mol_x[index].push_back(v);
}

// ---------------------------------------------------------------- V3000

bool FileIO::ReadV3000Line(LineInput& in, std::vector<std::string>& tokens)
{
    std::string s;
    if (!in.get(s)) return false;
    tokenize(tokens, s.c_str(), " \t\r\n");
    if (!is_v30(tokens)) return false;
    // A line ending in " -" continues on the next "M  V30" line.
    while (tokens.back() == "-") {
        tokens.pop_back();
        std::vector<std::string> more;
        if (!in.get(s)) break;
        tokenize(more, s.c_str(), " \t\r\n");
        if (!is_v30(more)) break;
        tokens.insert(tokens.end(), more.begin() + 2, more.end());
    }
    return true;
}

void FileIO::ReadV3000Block(LineInput& in, int index, bool /*binfo*/)
{
    std::vector<std::string> tok;
    // Runs to "M  END": R-group blocks follow the main connection table.
    while (ReadV3000Line(in, tok)) {
        if (!is_begin(tok) || tok[3] == "CTAB") continue;  // COUNTS and the CTAB frame
        const std::string& name = tok[3];
        if (name == "ATOM")
            ReadAtomBlock(in, index);
        else if (name == "BOND")
            ReadBondBlock(in);
        else if (name == "RGROUP")
            ReadRGroupBlock(in);
        else
            ReadUnimplementedBlock(in, name);
    }
}

// "M V30 number symbol x y z map [CHG= RAD= CFG= MASS= VAL=]": only the symbol
// and the position are kept; the keyword fields are not used here.
void FileIO::ReadAtomBlock(LineInput& in, int index)
{
    std::vector<std::string> tok;
    while (ReadV3000Line(in, tok) && !is_end(tok)) {
        if (tok.size() < 7) continue;
        const std::string& symbol = tok[3];
        if (symbol.rfind("R#", 0) == 0) std::printf("WARNING: A molecule contains an R group which is not implemented!\n");
        mol_atypes[index].push_back(find_element_index_from_name(symbol.c_str()));
        for (int d = 0; d < 3; ++d) add_coordinate(in, index, std::atof(tok[4 + d].c_str()));
        ++mol_natoms[index];
    }
}

// Bonds (number, type, two atom numbers, optional CFG=) are not needed here.
void FileIO::ReadBondBlock(LineInput& in) { ReadUnimplementedBlock(in, ""); }

void FileIO::ReadRGroupBlock(LineInput& in)
{
    std::printf("WARNING: RGROUP and RLOGIC blocks are not currently implemented and their contents are ignored.\n");
    ReadUnimplementedBlock(in, "");
}

// Skips to the END of the block just begun, over nested blocks; a name prints
// the warning that its contents are ignored.
void FileIO::ReadUnimplementedBlock(LineInput& in, const std::string& name)
{
    if (!name.empty())
        std::printf("WARNING: %s blocks are not currently implemented and their contents are ignored.\n",
                    name.c_str());
    int depth = 1;
    std::vector<std::string> tok;
    while (depth > 0 && ReadV3000Line(in, tok)) {
        if (is_begin(tok)) ++depth;
        if (is_end(tok)) --depth;
    }
}
