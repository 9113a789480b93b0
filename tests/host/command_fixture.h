// Runs the command `tavo` as a user does: what it prints, and its exit status.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

class Command : public ::testing::Test {
protected:
    struct outcome {
        int status;
        std::string out, err;
    };

    void SetUp() override {
        char name[] = "/tmp/tavo_command_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string file(const std::string &name, const std::string &content) const {
        std::ofstream(folder_ + "/" + name, std::ios::binary) << content;
        return folder_ + "/" + name;
    }
    static std::string content(const std::string &path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    outcome run(const std::string &arguments,
                const std::string &environment = "TAVO_LIB='" TAVO_LIBRARY_PATH "'") const {
        const std::string out = folder_ + "/out", err = folder_ + "/err";
        const std::string command =
            "env " + environment + " '" TAVO_COMMAND "' " + arguments + " >'" + out + "' 2>'" + err + "' </dev/null";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(out), content(err)};
    }
    // With runs of spaces made single: tables are as wide as what stands in them.
    static std::string squeezed(std::string text) {
        text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
                   text.end());
        return text;
    }
    // Status 2, nothing on standard output, and the message.
    void expect_refused(const std::string &arguments, const std::string &message,
                        const std::string &environment = "TAVO_LIB='" TAVO_LIBRARY_PATH "'") const {
        const outcome o = run(arguments, environment);
        EXPECT_EQ(o.status, 2) << arguments << "\n" << o.err;
        EXPECT_EQ(o.out, "") << arguments;
        EXPECT_NE(o.err.find(message), std::string::npos) << arguments << "\n" << o.err;
    }

    std::string folder_;
    // As words of a shell's command: the tests may stand in a folder whose name has a space.
    const std::string flights_ = "'" TAVO_DATA "/flights-100k.csv'", airports_ = "'" TAVO_DATA "/airports.csv'";
};
