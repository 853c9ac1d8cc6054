// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/services.h"

namespace qf::writers {

// The ExifTool program a run uses: <resources_folder>/exiftool/exiftool when that file exists
// and may be run, else the first executable "exiftool" on PATH; empty when there is neither.
std::filesystem::path find_exiftool(const std::filesystem::path& resources_folder);

// One line of an ExifTool argument file that ExifTool reads back as exactly `argument`: the
// text itself where ExifTool keeps it as it is, else a "#[CSTR]" line with C escapes (for line
// breaks and leading blanks). Empty when neither form keeps it, as for a text with both a line
// break and a "$" or "@", which ExifTool's C-string reading prefixes with a backslash.
std::optional<std::string> argfile_line(std::string_view argument);

class ExifToolProcess;

// updatedpinonstore through one ExifTool process kept open for the whole run ("-stay_open"),
// started at the first file and ended by the destructor. Each file gets XResolution and
// YResolution (the resolution text as entered), Copyright when the copyright text is not blank,
// Artist and Author when the author text is not blank (texts trimmed, then santitext), written
// in place. Every text reaches ExifTool as one argument of its own, never through a shell; a
// text no argument line can hold exactly goes through a private file ("-TAG<=FILE").
// Stamping never throws: a file ExifTool cannot update stays as it was. If the process dies or
// gives no answer within answer_timeout (generous by default: a large multipage TIFF is
// rewritten whole), it is ended and started once more for the next file; after a second
// failure the run goes on unstamped. Not thread-safe.
class ExifStamper : public engine::Stamper {
public:
    // An empty tool path makes stamping do nothing.
    explicit ExifStamper(std::filesystem::path tool,
                         std::chrono::milliseconds answer_timeout = std::chrono::minutes(2));
    ~ExifStamper() override;
    ExifStamper(const ExifStamper&) = delete;
    ExifStamper& operator=(const ExifStamper&) = delete;

    void updatedpinonstore(const std::filesystem::path& file,
                           const engine::StampRequest& request) override;

private:
    std::optional<std::string> value_line(std::string_view tag, const std::string& value);
    std::string argument_lines(const std::filesystem::path& file,
                               const engine::StampRequest& request);
    void process_failed();

    std::filesystem::path tool_;
    std::chrono::milliseconds answer_timeout_;
    std::unique_ptr<ExifToolProcess> process_;
    int restarts_left_ = 1;
    bool given_up_ = false;
    unsigned executions_ = 0;
    std::filesystem::path value_folder_; // texts no argument line can hold, passed as files
};

// The stamper of a run, with the tool that find_exiftool chooses.
std::unique_ptr<engine::Stamper> make_exif_stamper(const std::filesystem::path& resources_folder);

} // namespace qf::writers
