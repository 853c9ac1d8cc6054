// SPDX-License-Identifier: GPL-3.0-or-later
// The driver of a fuzz target outside libFuzzer: runs the target once on every file named on
// the command line or found (recursively) in a folder named there, in name order, so that the
// seed corpus and every input that once found a fault are replayed by the test suite.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <sys/resource.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// The fuzzer stops an input that takes more memory than this; a replay does the same, so that an
// input that once exhausted memory fails here too. AddressSanitizer reserves far more address
// space than it uses, so a sanitized replay goes without the limit.
constexpr rlim_t kReplayAddressSpace = rlim_t{2} << 30;

void limit_memory()
{
#if defined(__SANITIZE_ADDRESS__)
    return;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return;
#endif
#endif
    const rlimit limit{kReplayAddressSpace, kReplayAddressSpace};
    setrlimit(RLIMIT_AS, &limit);
}

std::vector<fs::path> inputs_of(const fs::path &argument)
{
    std::vector<fs::path> inputs;
    if (fs::is_directory(argument)) {
        for (const auto &entry : fs::recursive_directory_iterator(argument)) {
            if (entry.is_regular_file()) {
                inputs.push_back(entry.path());
            }
        }
        std::sort(inputs.begin(), inputs.end());
    } else {
        inputs.push_back(argument);
    }
    return inputs;
}

bool replay(const fs::path &input)
{
    std::ifstream in(input, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "%s could not be opened\n", input.c_str());
        return false;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]);
        return 2;
    }
    limit_memory();
    int replayed = 0;
    for (int index = 1; index < argc; ++index) {
        for (const fs::path &input : inputs_of(argv[index])) {
            if (!replay(input)) {
                return 2;
            }
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::fprintf(stderr, "no input to replay\n");
        return 2;
    }
    std::printf("replayed %d inputs\n", replayed);
    return 0;
}
