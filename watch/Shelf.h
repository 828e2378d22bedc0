/// A descriptor that is kept without being open: in a message on the way from the watcher to itself. The kernel shows
/// who has a file open, and whoever has one below the product's tree is taken for one of its users.
#pragma once

#include "UniqueFd.h"

namespace watch {

class Shelf {
  public:
    /// Puts away what is open as `fd`, which itself stays open. Returns whether it could.
    bool put(int fd);

    /// Takes it back; nothing where none was put away.
    UniqueFd take();

  private:
    UniqueFd m_from;
    UniqueFd m_to;
};

} // namespace watch
