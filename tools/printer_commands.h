// `vorn printer` (a virtual network printer that draws what it prints) and
// `vorn render` (the same drawing for bytes captured in a file).
#pragma once

#include <optional>
#include <string>

#include "cli_options.h"
#include "engine.h"

namespace vorn::cli {

// The engine settings for a catalogue model; nullopt for an unknown name.
std::optional<vprinter::EngineOptions> printer_model(const std::string& name);

// "paper-out,cover-open" as conditions; nullopt and the unknown word in
// `problem` when a word is not one of paper-near-end, paper-out,
// cover-open, drawer-open, offline.
std::optional<vprinter::Conditions> parse_conditions(const std::string& list, std::string* problem);

int run_printer(const CommandLine& line);
int run_render(const CommandLine& line);

}  // namespace vorn::cli
