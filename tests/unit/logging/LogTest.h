/// The fixture of the tests of a log: a folder for it, and a logger.
#pragma once

#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TempFolder.h"
#include "cvlog.h"

class Log : public testing::Test {
  protected:
    void open() { ASSERT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", nullptr), 0); }

    TempFolder folder;
    std::string path = folder.at("cvstop.log");
    CVLogger logger;
};

/// Runs `body` in a child process and returns its wait status.
template <class Body> int inChild(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        body();
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(pid, &status, 0);
    return status;
}
