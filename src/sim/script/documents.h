// The project's documents, which are built into the program: their sections and tables.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

struct document {
    std::string name; // of its file in docs/
    std::string text;
};

std::vector<document> all_documents();

// What a heading stands above, up to the next one; or a paragraph or an item that begins with a
// topic of its own.
struct section {
    std::string document;
    std::string topic; // without marks and numbers
    std::string text;
};

// A row of a table: what it is about, and what it says of that. Bars in cells have lost their
// backslashes.
struct table_row {
    std::string document;
    std::string about; // with its marks: `a` `b`
    std::string text;
};

std::vector<section> sections_of(const document& from);
std::vector<table_row> rows_of(const document& from);

std::string without_marks(const std::string& text); // those of code and bold print

} // namespace pelmsim
