// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

// MuPDF behind a C++ face. MuPDF reports errors by longjmp; every call into it happens in a
// small function of pdf_mupdf.cpp with no C++ object on its frame, and comes back here as a
// thrown engine::Error. Nothing of MuPDF's shows in this header.
namespace qf::sources {

// A page's box as MuPDF lays it out: the CropBox clipped to the MediaBox, in points, before
// /Rotate is applied, x0 <= x1 and y0 <= y1; rotation is /Rotate brought to 0, 90, 180 or
// 270. MuPDF reads PDF numbers as float, so an edge may be off the file's number by a float's
// precision.
struct PageBox {
    double x0 = 0;
    double y0 = 0;
    double x1 = 0;
    double y1 = 0;
    int rotation = 0;
    double width() const { return x1 - x0; }
    double height() const { return y1 - y0; }
};

class MupdfPage;

// One parsed PDF with a MuPDF context of its own, cloned from a process-wide one that holds
// the locks, so that several of these can work at once on several threads. One object is for
// one thread at a time; open another for another thread.
class MupdfDocument {
public:
    // Opens and, when the document asks for one, authenticates with `password`. Throws
    // Error(BadInput) when there is no such file, Error(Damaged) when MuPDF cannot read it,
    // Error(Password) when the password is missing or does not open it, Error(Unsupported)
    // when MuPDF cannot start.
    MupdfDocument(const std::filesystem::path& path, const std::string& password);
    ~MupdfDocument();
    MupdfDocument(const MupdfDocument&) = delete;
    MupdfDocument& operator=(const MupdfDocument&) = delete;

    // Number of pages. Throws Error(Damaged) when the page tree cannot be read.
    int page_count();

    // Loads page `index` (0-based, within the count). Throws Error(Damaged).
    MupdfPage load_page(int index);

    const std::filesystem::path& path() const { return path_; }

private:
    struct Handles;
    std::filesystem::path path_;
    std::unique_ptr<Handles> handles_;
};

// One loaded page; lives no longer than its document and is used on the same thread.
class MupdfPage {
public:
    MupdfPage(MupdfPage&& other) noexcept;
    MupdfPage& operator=(MupdfPage&&) = delete;
    ~MupdfPage();

    PageBox box() const { return box_; }

    // Draws the page, annotations and form widgets included, onto white and stretches its
    // bounds exactly over width x height pixels. `rgb` receives width * height * 3 bytes,
    // rows of width * 3 bytes, top row first. Throws Error(Damaged) when MuPDF fails.
    void render(int width, int height, std::uint8_t* rgb);

    // The page's text, annotations and widgets included, in MuPDF's reading order, UTF-8:
    // lines joined by "\n", no end of line after the last one. Throws Error(Damaged).
    std::string text();

private:
    friend class MupdfDocument;
    struct Handles;
    MupdfPage(std::unique_ptr<Handles> handles, PageBox box);
    std::unique_ptr<Handles> handles_;
    PageBox box_;
};

} // namespace qf::sources
