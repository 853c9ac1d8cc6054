// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "worker/channel.h"
#include "worker/protocol.h"
#include "writers/pdf/pdf_assembler.h"

// The worker's side of the channel: reads untrusted documents on request and answers with
// what it read. Documents stay open between requests, as long as the file on disk is the one
// that was opened.
namespace qf::worker {

class ReaderService {
public:
    // memory_limit_mb names the limit in the reason of a request that ran out of memory.
    explicit ReaderService(std::size_t memory_limit_mb);
    ~ReaderService();
    ReaderService(const ReaderService&) = delete;
    ReaderService& operator=(const ReaderService&) = delete;

    // Answers requests on `channel` until it closes. Returns false when a request broke the
    // protocol (the worker then exits rather than guess).
    bool serve(int channel);

    // One request's answer; a picture's bytes go to `region` (the descriptor that came with a
    // picture request). Never throws for a document's sake: a reader's error becomes a Failed
    // reply. Throws ProtocolError.
    Frame answer(const Frame& request, int region);

private:
    struct OpenDocument;
    OpenDocument& document(const DocumentRef& ref);
    Frame open(const DocumentRef& ref);
    Frame picture(const PictureCall& call, int region);
    Frame text(const TextCall& call);
    Frame copy_pages(const CopyCall& call);
    Frame page_facts(const PageFactsCall& call);
    Frame deliver(const DeliverCall& call);

    // Flattened copies kept for a delivery, oldest first; a copy never delivered (its
    // document abandoned) goes when newer ones push it out.
    struct HeldCopy {
        std::uint64_t token = 0;
        writers::pdf::HeldCopyPtr copy;
    };
    std::vector<HeldCopy> held_;
    std::uint64_t tokens_ = 0;

    std::size_t memory_limit_mb_;
    std::uint64_t uses_ = 0;
    std::vector<std::unique_ptr<OpenDocument>> documents_;
};

// The admission probes as the worker runs them; neither throws for the file's sake.
PdfProbeReply probe_pdf_file(const std::string& path, const std::string& password);
TiffProbeReply probe_tiff_file(const std::string& path);

} // namespace qf::worker
