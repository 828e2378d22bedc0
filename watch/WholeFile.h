/// A file that is there whole, or not at all.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Sink.h"

namespace watch {

/// A file to be written later: nothing is open in between, since whoever holds a file below the product's tree is
/// listed as a third party. Its path is absolute, so that the working directory may change.
class WholeFile {
  public:
    WholeFile() = default;

    /// Looks whether `path` can be written, and keeps it. Returns why not: there is something else than a regular file
    /// (a link is never followed), its folder is missing or cannot be written. The message names neither.
    std::string choose(const std::string& path);

    /// Writes all of `text` under a temporary name in the same folder, brings it to the disk and gives it its name.
    /// Returns an empty text, or why not; the file is then what it was before, and the temporary one is gone.
    [[nodiscard]] std::string write(std::string_view text) const;

    /// The same with a text that `produce` hands over piece by piece, so that it need not stand in memory as a whole.
    [[nodiscard]] std::string write(const std::function<void(const Sink&)>& produce) const;

    /// Whether a path was chosen.
    explicit operator bool() const { return !m_path.empty(); }

  private:
    std::string m_path;
};

} // namespace watch
