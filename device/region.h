// The sales region, derived from the product number with the installed region table, kept
// for the voice prompts and written to the board's region file.
#pragma once
#include <cstdio>
#include <string>

// The region in force: empty until the product number was read, "prc" when nothing matched.
extern char g_region[128];

// Saves the region of the first table line whose pattern begins with the product number's
// first five characters, or "prc". Without a table the supervisor ends with status 0.
void RegionConfig(const std::string& table_path, char* pn);

// Reads the table up to the first line whose pattern begins with the product number's first
// five characters: true and that line's region, or false.
bool find_region(FILE* table, const char* pn, std::string* region);

// Sets g_region and rewrites the region file; tq_system's result.
int SaveRegion(const std::string& region);
