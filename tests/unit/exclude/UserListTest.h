/// The fixture of the tests of an exclude list: a folder for the list and for the files that it names.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Fixture.h"
#include "UserList.h"

inline const std::string kSite = "(UserList:#)";

class UserListTest : public fakes::ProgramTest {
  protected:
    UserListTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "userlist.XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
        host.journal.clear();
    }

    ~UserListTest() override { std::filesystem::remove_all(m_folder); }

    [[nodiscard]] std::string path(const std::string& name) const { return m_folder + "/" + name; }

    [[nodiscard]] std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    /// Reads a file of that content.
    bool read(const std::string& content) { return list.setProcessExcludelist(write("list", content)); }

    /// What was logged between the start and the end of reading.
    [[nodiscard]] fakes::Journal lines() const {
        fakes::Journal entries = host.of({"debug"});
        entries.erase(entries.begin());
        entries.pop_back();
        return entries;
    }

    UserList list;

  private:
    std::string m_folder;
};
