// The commands of the `vorn` program: each reads its options, makes the
// library calls and reports them.
#pragma once

#include <string>
#include <vector>

namespace vorn::cli {

// Runs the command named by words[0] with the rest as its words. Returns the
// exit status: 0 success, 1 a library call failed, 2 wrong usage.
int run_command(const std::vector<std::string>& words);

}  // namespace vorn::cli
