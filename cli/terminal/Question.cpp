#include "cli/terminal/Question.h"

#include "cli/terminal/Failure.h"

#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace tarncli {

bool isConfirmed(const std::string& question, const std::string& otherwise)
{
    if (isatty(STDIN_FILENO) == 0) throw usageError(otherwise);
    std::fputs((question + " [y/N] ").c_str(), stderr);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

} // namespace tarncli
