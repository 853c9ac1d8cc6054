// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the quirefold-cli(1) manual page from the command line's own help text, so the page
// lists exactly the options --help does. Usage: make_man_cli OUT.1
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "cli/cli_options.h"
#include "engine/version.h"

namespace {

// Text safe in roff: backslashes doubled, hyphens of options kept as minus signs, and a line
// never starting with a control character.
std::string roff(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\'')) {
        out.insert(0, "\\&");
    }
    return out;
}

std::string trim(const std::string& text)
{
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first);
}

// An option line of the help text: two spaces, the flags and their argument, a run of at least
// two spaces, the description.
bool split_option(const std::string& line, std::string& flags, std::string& description)
{
    if (line.rfind("  -", 0) != 0) {
        return false;
    }
    const auto gap = line.find("  ", 2);
    flags = gap == std::string::npos ? trim(line) : line.substr(2, gap - 2);
    description = gap == std::string::npos ? std::string() : trim(line.substr(gap));
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_man_cli OUT.1\n");
        return 2;
    }
    std::istringstream help(qf::cli::help_text());
    std::ostringstream page;
    page << ".TH QUIREFOLD\\-CLI 1 \"\" \"Quirefold " << qf::engine::kLongVersion << "\" \"User Commands\"\n"
         << ".SH NAME\nquirefold\\-cli \\- convert pages of PDF and TIFF documents\n"
         << ".SH SYNOPSIS\n.B quirefold\\-cli\n[\\fIOPTIONS\\fR] \\fIPATH\\fR...\n.SH DESCRIPTION\n";
    std::string line;
    std::getline(help, line); // the usage line, given as the synopsis
    bool in_options = false;
    bool in_paragraph = false;
    while (std::getline(help, line)) {
        std::string flags;
        std::string description;
        if (line.empty()) {
            in_paragraph = false;
            continue;
        }
        if (split_option(line, flags, description)) {
            if (!in_options) {
                page << ".SH OPTIONS\n";
                in_options = true;
            }
            page << ".TP\n.B " << roff(flags) << "\n" << roff(description) << "\n";
        } else if (line.rfind("  ", 0) == 0 && in_options) {
            // A description's continuation, or the values a list option takes.
            page << (trim(line).rfind("rows:", 0) == 0 ? ".br\n" : "") << roff(trim(line)) << "\n";
        } else if (line.rfind("Exit status:", 0) == 0) {
            page << ".SH EXIT STATUS\n" << roff(trim(line.substr(12))) << "\n";
        } else {
            if (in_options && !in_paragraph) {
                page << ".PP\n";
            }
            page << roff(line) << "\n";
            in_paragraph = true;
        }
    }
    page << ".SH EXAMPLES\n.nf\nquirefold\\-cli \\-\\-format png \\-\\-dpi 300 \\-o out scans/\n"
         << "quirefold\\-cli \\-\\-format pdf \\-\\-pdfversionnumber pdfa\\-1b \\-\\-pages 1\\-3 report.pdf\n.fi\n"
         << ".SH SEE ALSO\n.BR quirefold (1)\n";
    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out << page.str();
    out.close();
    if (!out) {
        std::fprintf(stderr, "make_man_cli: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
