// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>

#include "worker/protocol.h"
#include "writers/pdf/mapped_pdf.h"

namespace qf::app {

// The flattened copies kept by the reader workers for documents' own PDFs, one document read
// ahead: while a document is converted and its PDF written by the worker that keeps its copy,
// the next document is flattened by another worker. Without it one worker does both in turn
// and the other waits.
// Used from one thread (the run's); the read ahead runs on a thread of its own.
class CopyAhead {
public:
    // Has a worker flatten `source` and keep the copy, on another worker than `avoid` when one
    // is free. Throws as WorkerPool::copy_pages.
    using Keeper = std::function<worker::CopiedReply(const std::filesystem::path& source, const std::string& password,
                                                     pid_t avoid)>;

    explicit CopyAhead(Keeper keeper, std::function<void()> abort_reading);
    // A read ahead nobody claimed is ended (abort_reading) and waited for.
    ~CopyAhead();
    CopyAhead(const CopyAhead&) = delete;
    CopyAhead& operator=(const CopyAhead&) = delete;

    // `source` comes next: it is read ahead once the document under way has its copy.
    void expect(const std::filesystem::path& source, const std::string& password);

    // The copy of `source`: the one read ahead when it is for that file and password and the
    // file has not changed since it was started, a fresh one otherwise. Then starts reading the
    // expected document ahead. Throws as the keeper; a read ahead that failed throws the same.
    worker::CopiedReply keep(const std::filesystem::path& source, const std::string& password);

private:
    struct Wanted {
        std::filesystem::path source;
        std::string password;
    };
    struct Ahead {
        Wanted wanted;
        writers::pdf::FileStamp stamp; // the file as it was when the read began
        std::future<worker::CopiedReply> copied;
    };

    std::optional<worker::CopiedReply> claim(const std::filesystem::path& source, const std::string& password);
    void start(const Wanted& wanted, pid_t avoid);

    Keeper keeper_;
    std::function<void()> abort_reading_;
    std::optional<Wanted> expected_;
    std::optional<Ahead> ahead_;
};

} // namespace qf::app
