#include "Processes.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <vector>

#include <boost/format.hpp>
#include <boost/lexical_cast.hpp>

#include "Messages.h"

namespace {

/// Longer translations are cut.
constexpr std::size_t kLabelSize = 64;

struct Labels {
    char name[kLabelSize];
    char path[kLabelSize];
    char pid[kLabelSize];
    char category[kLabelSize];
    char product[kLabelSize];
    char thirdParty[kLabelSize];
};

/// Column widths in characters.
struct Widths {
    int name = 0;
    int path = 0;
    int pid = 0;
    int category = 0;
};

using Filter = bool (*)(const CV_Process_s*);

/// The records that the filter accepts. It is asked once a record: a process that ends meanwhile must not leave the
/// table with a header alone, or with a row wider than its column.
std::vector<const CV_Process_s*> selectShown(const CV_Process_s* list, Filter filter) {
    std::vector<const CV_Process_s*> shown;
    for (const CV_Process_s* proc = list; proc != nullptr; proc = proc->next) {
        if (filter == nullptr || filter(proc)) {
            shown.push_back(proc);
        }
    }
    return shown;
}

Labels lookUpLabels() {
    Labels labels = {};
    formatMessageInto<Msg::HeadingName>(labels.name);
    formatMessageInto<Msg::HeadingPath>(labels.path);
    formatMessageInto<Msg::HeadingPid>(labels.pid);
    formatMessageInto<Msg::HeadingCategory>(labels.category);
    formatMessageInto<Msg::CategoryProduct>(labels.product);
    formatMessageInto<Msg::CategoryThirdParty>(labels.thirdParty);
    return labels;
}

void widen(int& width, const char* text) {
    width = std::max(width, static_cast<int>(_utf8_mbstowcs_len(text)));
}

Widths measure(const std::vector<const CV_Process_s*>& shown, bool header, const Labels& labels) {
    Widths widths;
    for (const CV_Process_s* proc : shown) {
        widen(widths.name, proc->name);
        widen(widths.path, proc->path);
        // As the stream will write it, digit grouping of the global locale included.
        widths.pid = std::max(widths.pid, static_cast<int>(boost::lexical_cast<std::string>(proc->pid).size()));
    }
    widen(widths.category, labels.product);
    widen(widths.category, labels.thirdParty);
    if (header) {
        widen(widths.name, labels.name);
        widen(widths.path, labels.path);
        widen(widths.pid, labels.pid);
        widen(widths.category, labels.category);
    }
    return widths;
}

boost::format makeRowFormat(const Widths& widths) {
    boost::format row("%1% %2% %3% %4%");
    int item = 0;
    for (const int width : {widths.name, widths.path, widths.pid, widths.category}) {
        row.modify_item(++item, boost::io::group(std::setw(width), std::left));
    }
    return row;
}

void printHeader(std::ostream& out, boost::format& row, const Labels& labels) {
    out << row % labels.name % labels.path % labels.pid % labels.category << '\n';
    for (int item = 0; item < 4; ++item) {
        row % boost::io::group(std::setfill('-'), "");
    }
    out << row << '\n';
}

const char* categoryWord(int category, const Labels& labels) {
    switch (category) {
    case CAT_CORVANE:
        return labels.product;
    case CAT_THIRD_PARTY:
    case CAT_OTHER_THIRD_PARTY:
        return labels.thirdParty;
    default:
        return "";
    }
}

} // namespace

void Processes::PrintProcesses() const {
    print_processes(std::cout, procs, true, nullptr);
}

void print_processes(std::ostream& out, const CV_Process_s* list, bool header, Filter filter) {
    const std::vector<const CV_Process_s*> shown = selectShown(list, filter);
    if (shown.empty()) {
        return;
    }
    const Labels labels = lookUpLabels();
    boost::format row = makeRowFormat(measure(shown, header, labels));
    if (header) {
        printHeader(out, row, labels);
    }
    for (const CV_Process_s* proc : shown) {
        out << row % proc->name % proc->path % proc->pid % categoryWord(proc->category, labels) << '\n';
    }
}
