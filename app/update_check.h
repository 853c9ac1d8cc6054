// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

// The version check: one GET of a plain text file that holds the newest version, compared as
// text with this build's version. Toolkit-free; the window runs it off its own thread.
namespace qf::app {

// Where the check asks and where an update is offered. Both come from the build configuration
// (QF_UPDATE_BASE_URL, QF_DOWNLOAD_URL), the address also from the environment's
// QUIREFOLD_UPDATE_BASE_URL; an empty version_url means no server is configured.
struct UpdateEndpoint {
    std::string version_url;  // <base>/ver/quirefold.txt, or empty
    std::string download_url; // opened in the browser when the user accepts the offer; may be empty
};

UpdateEndpoint configured_update_endpoint();

// This build's version as the check compares it (the project version).
std::string local_version();

enum class UpdateOutcome {
    ServerUnreachable, // no answer, a failed transfer, an error status or an empty body
    UpToDate,          // the server's text does not sort after the local version
    NewerVersion,      // the server's text sorts after it: an update is offered
};

struct UpdateCheck {
    UpdateOutcome outcome = UpdateOutcome::ServerUnreachable;
    std::string newest; // the server's text, trimmed; shown to the user as plain text
};

inline constexpr std::chrono::seconds kUpdateWait{10};

// Fetches url (http or https; certificates and host names checked, redirects only to https)
// and returns the first 64 bytes of its body, trimmed of surrounding white space. Any failure
// gives an empty text. Waits at most `wait`; a set `cancel` ends the transfer within about a
// second. Thread-safe.
std::string fetch_version_text(const std::string& url, std::chrono::milliseconds wait,
                               const std::atomic<bool>* cancel = nullptr);

// The comparison alone: the local version cut to its first three dot-separated parts, the
// server's trimmed text compared with it as text, without regard to ASCII case (1.10.0 sorts
// before 1.9.0).
UpdateCheck compare_with_server(std::string_view local, std::string_view server_text);

// fetch_version_text, then compare_with_server. An empty url is an unreachable server.
UpdateCheck check_for_updates(const std::string& url, std::string_view local,
                              std::chrono::milliseconds wait = kUpdateWait,
                              const std::atomic<bool>* cancel = nullptr);

// The message of an outcome: the offer's question, or one of the two notices.
std::string update_message(const UpdateCheck& check);

// Whether an outcome is shown: the offer always, the two others only when the user asked.
bool update_message_shown(const UpdateCheck& check, bool announce);

} // namespace qf::app
