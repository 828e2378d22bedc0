/// The kinds of process that the product's libraries and the program speak of.
#pragma once

/// The kinds of process that a snapshot gathers; a bit mask when it asks, one bit in a record.
enum Proc_categories : int {
    /// The product's own processes.
    CAT_CORVANE = 1,
    /// Processes of others that work with the product and may be terminated.
    CAT_THIRD_PARTY = 2,
    /// Further processes of others: listed, never signalled.
    CAT_OTHER_THIRD_PARTY = 4,
};
