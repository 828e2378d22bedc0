/// The verdict on a process, and why.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

namespace lister {

/// Why a process got its category, or none. One of its own is due where the log or a test must tell it from another.
enum class Reason {
    ProductExecutable,
    ProductScript,
    UnfitPath,
    MapsProduct,
    HoldsProduct,
    DemotedPid1,
    DemotedAncestor,
    DemotedScope,
    DemotedHostService,
    DemotedUnexcludable,
    OtherPidNamespace,
    ForeignUserNamespace,
    NotTheHostsFile,
    CallersExecutable,
    NoRelation,
    Vanished,
    Unreadable,
    Unsettled,
    Stuck,
    AsksServer,
    Unproven,
    OverBudget,
    Count_,
};

struct ReasonRow {
    /// As the log has it.
    const char* text;
    Reason reason;
    /// Whether it is logged whatever the verbosity: the process is passed over, and might be the product's.
    bool isWarning;
};

inline constexpr ReasonRow kReasons[] = {
    {"runs an executable of the product", Reason::ProductExecutable, false},
    {"runs a script of the product", Reason::ProductScript, false},
    {"its path must not become part of a command line", Reason::UnfitPath, true},
    {"runs code of the product inside", Reason::MapsProduct, false},
    {"works in the product's tree", Reason::HoldsProduct, false},
    {"only listed: the host's first process", Reason::DemotedPid1, false},
    {"only listed: an ancestor of the caller", Reason::DemotedAncestor, false},
    {"only listed: in namespaces of its own", Reason::DemotedScope, false},
    {"only listed: a service of the host", Reason::DemotedHostService, false},
    {"only listed: no exclude list could name it", Reason::DemotedUnexcludable, false},
    {"in another pid namespace", Reason::OtherPidNamespace, false},
    {"in a user namespace that root does not own", Reason::ForeignUserNamespace, false},
    {"not this host's file of that path", Reason::NotTheHostsFile, false},
    {"runs the caller's own executable", Reason::CallersExecutable, false},
    {"has nothing to do with the product", Reason::NoRelation, false},
    {"vanished", Reason::Vanished, false},
    {"passed over: it cannot be read", Reason::Unreadable, true},
    {"passed over: it executes one program after another", Reason::Unsettled, true},
    {"passed over: it does not answer", Reason::Stuck, true},
    {"passed over: what script it runs only a file server could tell", Reason::AsksServer, true},
    {"passed over: nothing proves that its script is not another one of that name", Reason::Unproven, true},
    {"passed over: too many mappings or descriptors", Reason::OverBudget, true},
};

constexpr const ReasonRow& rowOf(Reason reason) {
    return kReasons[static_cast<std::size_t>(reason)];
}

static_assert(std::size(kReasons) == static_cast<std::size_t>(Reason::Count_), "a row for each Reason");
static_assert(std::all_of(std::begin(kReasons), std::end(kReasons),
                          [](const ReasonRow& row) { return &rowOf(row.reason) == &row; }),
              "the rows stand in the order of the enum");

/// `category` 0: no record.
struct Verdict {
    int category = 0;
    Reason reason = Reason::NoRelation;
    std::string path;
};

} // namespace lister
