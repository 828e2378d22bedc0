// What is said of a script's first line, compared with what the kernel and env do with it.

#include "shebang.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "ChildOutput.h"
#include "TempFolder.h"

namespace lister {
namespace {

using namespace std::string_literals;

class RealShebang : public testing::Test {
  protected:
    /// What the kernel makes of a script that begins so.
    std::string outputOfScript(const std::string& bytes) const {
        m_folder.write("script", bytes);
        std::filesystem::permissions(path(), std::filesystem::perms::owner_all);
        return outputOf(path(), {"script"}, m_folder.at(""));
    }

    std::string path() const { return m_folder.at("script"); }

    TempFolder m_folder;
};

TEST_F(RealShebang, IsReadAsTheKernelReadsIt) {
    const std::string blanks(400, ' ');
    const std::string letters(400, 'x');
    for (const std::string& bytes : {"#!/bin/echo\n"s,
                                     "#!/bin/echo"s,
                                     "#!/bin/echo x"s,
                                     "#! \t/bin/echo \tx y\t \nz"s,
                                     "#!/bin/echo\r\n"s,
                                     "#!"s,
                                     "#!\n"s,
                                     "#! \t"s,
                                     "#!\0/bin/echo\n"s,
                                     "#!/bin/echo\0x\n"s,
                                     "#!/bin/echo x\0y\n"s,
                                     "#!/bin/echo " + letters,
                                     "#!/bin/echo" + blanks,
                                     "#!/bin/echo" + letters,
                                     "#!" + blanks,
                                     "#!/bin/echo x\n" + letters,
                                     "#!" + std::string(243, ' ') + "/bin/echo x\n",
                                     "#!" + std::string(244, ' ') + "/bin/echo x\n",
                                     "#!" + std::string(245, ' ') + "/bin/echo\n",
                                     "#!" + std::string(246, ' ') + "/bin/echo\n"}) {
        const std::optional<Shebang> shebang = parseShebang(bytes);
        std::string expected;
        if (shebang && shebang->interpreter == "/bin/echo") {
            expected = std::string(shebang->argument) + (shebang->argument.empty() ? "" : " ") + path() + "\n";
        }
        EXPECT_EQ(outputOfScript(bytes), expected) << bytes.size() << ' ' << bytes;
    }
}

/// Without a program, env would start the script again, and that env.
TEST_F(RealShebang, ProgramIsWhatEnvStarts) {
    for (const std::string argument : {"echo",
                                       "-S echo ran",
                                       "-Secho ran",
                                       "-vS echo ran",
                                       "-ivS/bin/echo ran",
                                       "--split-string=echo ran",
                                       "-S A=1 echo ran",
                                       "-S -u X A=1 echo ran",
                                       "-S A=1 -u X echo ran",
                                       "-S -uX echo ran",
                                       "-S -C / echo ran",
                                       "-S -C/ echo ran",
                                       "-S --chdir=/ --unset X echo ran",
                                       "-S -- echo ran",
                                       "-S -- A=1 echo ran",
                                       "-S - /bin/echo ran",
                                       "-S -i -S /bin/echo ran",
                                       "-S --ignore-environment --debug /bin/echo ran",
                                       "-S -x echo ran",
                                       "-S --version echo ran",
                                       "-S -u"}) {
        const std::optional<std::string_view> program = shebangProgram({"/usr/bin/env", argument});
        const bool isEcho = program && program->ends_with("echo");
        const std::string output = outputOfScript("#!/usr/bin/env " + argument + "\n");
        EXPECT_EQ(output == (argument == "echo" ? "" : "ran ") + path() + "\n", isEcho) << argument << ": " << output;
    }
}

} // namespace
} // namespace lister
