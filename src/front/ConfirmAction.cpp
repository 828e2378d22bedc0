#include "front.h"

#include <istream>
#include <ostream>

bool confirmAction(const std::string& prompt, std::ostream& out, std::istream& in) {
    out << prompt << std::flush;
    std::string answer;
    if (!std::getline(in, answer) || answer.empty()) {
        return false;
    }
    return answer.front() == 'y' || answer.front() == 'Y';
}
