// Text helpers with the suite's historic names: trimming, case-insensitive
// comparison, tokenising.
#pragma once

#include <string>
#include <vector>

std::string& trim(std::string& s);
std::string& sg_triml(std::string& s);
std::string& sg_trimr(std::string& s);
std::string& sg_trim(std::string& s);
void c_trim(char* s);
bool iequals(const std::string& a, const std::string& b);
bool my_strcasestr(const char* a, const char* b, int n);
bool tokenize(std::vector<std::string>& out, const char* str, const char* delims);
std::string RemoveWhiteSpaceUnderscore(const std::string& s);
std::string remove_filename_extension(const std::string& s);

// s for the inside of single quotes in a shell script: ' becomes '\''.
std::string shell_quoted(const std::string& s);
