// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/update_check.h"

#include <cstdlib>

#include <algorithm>
#include <curl/curl.h>
#include <memory>
#include <mutex>

#include "engine/version.h"

namespace qf::app {
namespace {

// A version file is a few bytes; anything longer is not read past this.
constexpr std::size_t kBodyCap = 64;

struct Transfer {
    std::string body;
    bool capped = false;
    const std::atomic<bool>* cancel = nullptr;
};

std::size_t keep_body(char* data, std::size_t size, std::size_t count, void* user)
{
    auto& transfer = *static_cast<Transfer*>(user);
    const std::size_t bytes = size * count;
    const std::size_t room = kBodyCap - transfer.body.size();
    transfer.body.append(data, std::min(bytes, room));
    if (bytes > room) {
        transfer.capped = true;
        return 0; // ends the transfer; what was kept counts
    }
    return bytes;
}

int watch_cancel(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    const auto& transfer = *static_cast<const Transfer*>(user);
    return transfer.cancel != nullptr && transfer.cancel->load() ? 1 : 0;
}

std::string trimmed(std::string_view text)
{
    constexpr std::string_view kSpace = " \t\r\n\f\v";
    const auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(kSpace) - first + 1));
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
    });
    return text;
}

// "1.2.3.4" gives "1.2.3": copied up to the third dot, which is left out.
std::string first_three_parts(std::string_view version)
{
    std::string cut;
    int dots = 0;
    for (const char c : version) {
        if (c == '.' && ++dots == 3) {
            break;
        }
        cut += c;
    }
    return cut;
}

} // namespace

UpdateEndpoint configured_update_endpoint()
{
    // QUIREFOLD_UPDATE_BASE_URL, when set, stands in for the built-in address (empty: no check),
    // for a site that mirrors the version file, and for tests that must not reach out.
    const char* chosen = std::getenv("QUIREFOLD_UPDATE_BASE_URL");
    const std::string base = chosen != nullptr ? chosen : QF_UPDATE_BASE_URL;
    return {base.empty() ? std::string() : base + "/ver/quirefold.txt", QF_DOWNLOAD_URL};
}

std::string local_version()
{
    return engine::kLongVersion;
}

std::string fetch_version_text(const std::string& url, std::chrono::milliseconds wait,
                               const std::atomic<bool>* cancel)
{
    static std::once_flag curl_ready;
    std::call_once(curl_ready, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    if (!curl) {
        return {};
    }
    Transfer transfer;
    transfer.cancel = cancel;
    const std::string agent = "Quirefold/" + local_version();
    CURL* handle = curl.get();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 3L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L); // an error page is no version
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);    // called from a thread of its own
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(wait.count()));
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(wait.count()));
    curl_easy_setopt(handle, CURLOPT_USERAGENT, agent.c_str());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, keep_body);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, watch_cancel);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer);

    const CURLcode result = curl_easy_perform(handle);
    // A transfer cut short, other than by the cap, is as good as no answer: half a version
    // would be compared as if it were the newest.
    if (result != CURLE_OK && !(result == CURLE_WRITE_ERROR && transfer.capped)) {
        return {};
    }
    return trimmed(transfer.body);
}

UpdateCheck compare_with_server(std::string_view local, std::string_view server_text)
{
    UpdateCheck check;
    check.newest = trimmed(server_text);
    if (check.newest.empty()) {
        check.outcome = UpdateOutcome::ServerUnreachable;
    } else if (lowered(check.newest) > lowered(first_three_parts(local))) {
        check.outcome = UpdateOutcome::NewerVersion;
    } else {
        check.outcome = UpdateOutcome::UpToDate;
    }
    return check;
}

UpdateCheck check_for_updates(const std::string& url, std::string_view local, std::chrono::milliseconds wait,
                              const std::atomic<bool>* cancel)
{
    return compare_with_server(local, url.empty() ? std::string() : fetch_version_text(url, wait, cancel));
}

std::string update_message(const UpdateCheck& check)
{
    switch (check.outcome) {
    case UpdateOutcome::ServerUnreachable:
        return "Our Update Server cannot be reached at the moment. Please try again later";
    case UpdateOutcome::UpToDate:
        return "You are currently up to date";
    case UpdateOutcome::NewerVersion:
        return "There is an Updated Version " + check.newest + " available. Do You Want to Download It Now ?";
    }
    return {};
}

bool update_message_shown(const UpdateCheck& check, bool announce)
{
    return announce || check.outcome == UpdateOutcome::NewerVersion;
}

} // namespace qf::app
