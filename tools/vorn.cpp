// vorn: a command-line front end to the library. It drives a printer (or a
// file standing in for one) through the library's calls without writing a
// program, and explains the ESC/POS bytes that reached it.
#include <string>
#include <vector>

#include "commands.h"

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  return vorn::cli::run_command(words);
}
