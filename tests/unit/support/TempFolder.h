/// A temporary folder, and what tests do with the files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

/// Removed with everything in it at the end.
class TempFolder {
  public:
    TempFolder() {
        std::string pattern = testing::TempDir() + "/cvstop-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp " + pattern);
        }
        m_path = pattern;
    }
    ~TempFolder() { std::filesystem::remove_all(m_path); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] std::string at(const std::string& name) const { return m_path + '/' + name; }

    std::string write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        std::ofstream(at(name), std::ios::binary) << bytes;
        return at(name);
    }

  private:
    std::string m_path;
};

inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The permission bits, or -1 where there is nothing.
inline int modeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777U) : -1;
}

/// Sets the umask for as long as it lives.
class UmaskGuard {
  public:
    explicit UmaskGuard(mode_t mask) : m_before(::umask(mask)) {}
    ~UmaskGuard() { ::umask(m_before); }
    UmaskGuard(const UmaskGuard&) = delete;
    UmaskGuard& operator=(const UmaskGuard&) = delete;

  private:
    mode_t m_before;
};
