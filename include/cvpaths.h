/// Where the product lives on a client host. One place for the paths that the program and the product's libraries
/// share.
#pragma once

namespace product {

/// Everything of the product lies below this folder. It may be a symbolic link.
inline constexpr char kInstallRoot[] = "/usr/quarn";

inline constexpr char kProgramName[] = "cvstop";

inline constexpr char kBinDirectory[] = "/usr/quarn/corvane/bin";
inline constexpr char kVolumeManagerBinDirectory[] = "/usr/quarn/volmgr/bin";
inline constexpr char kMoskDirectory[] = "/usr/quarn/mosk";

/// Each program has a folder of its own below it.
inline constexpr char kLogRoot[] = "/usr/quarn/corvane/logs";
inline constexpr char kLocaleRoot[] = "/usr/quarn/corvane/locale";
inline constexpr char kHostConfiguration[] = "/usr/quarn/corvane/host.conf";
inline constexpr char kDefaultExcludeList[] = "/usr/quarn/corvane/bin/excludelist.conf";

} // namespace product
