/// The watcher's hold on what it was started with. Whoever has a file of the product's tree open, or works in a folder
/// of it, is one of its users, and the program would list the watcher beside the one that started it.
#pragma once

#include "Shelf.h"

namespace watch {

class OwnStreams {
  public:
    /// Leaves the working folder, standard input and output, and where it is a file, standard error: it is kept where
    /// nobody sees it.
    void letGo();

    /// Standard error is there again.
    void takeBack();

  private:
    Shelf m_shelf;
    bool m_isAway = false;
};

} // namespace watch
