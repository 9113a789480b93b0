// Where the command writes: the answer to standard output or a file, everything else to standard error.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace host {

// The answer. All that goes to standard output goes through here, so that a full disk is noticed.
class output {
public:
    output() : output("-") {}
    explicit output(const std::string &path); // a file, which is made anew; "-" is standard output
    ~output();
    output(const output &) = delete;
    output &operator=(const output &) = delete;
    void write(std::string_view text);
    void finish(); // to be called at the end: throws if not all of it could be written

private:
    [[noreturn]] void fail() const;
    std::string path_;
    std::FILE *file_;
};

// A line to the user on standard error, behind the name of the command.
void tell(std::string_view what);
// Text on standard error as it is: what was asked for beside the answer.
void show(std::string_view text);

// One line on standard error while a large file is read, if that is a terminal.
class progress_line {
public:
    explicit progress_line(std::string file);
    ~progress_line();
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;
    void show(std::size_t done, std::size_t all);

private:
    std::string file_;
    bool shown_;
    int percent_ = -1;
};

} // namespace host
