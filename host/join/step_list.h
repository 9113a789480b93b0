// Steps of a query that are done batch by batch: rows and times summed up under the kernel's name.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/query/query.h"

namespace host {

class step_list {
public:
    // Adds to the step of this kernel and column, or begins it, at the end.
    void add(const std::string &kernel, const std::string &column, const std::string &what, ub4 rows_in, ub4 rows_out,
             double seconds) {
        for (query_step &s : steps_)
            if (s.kernel == kernel && s.column == column && s.what == what) {
                s.rows_in += rows_in;
                s.rows_out += rows_out;
                s.seconds += seconds;
                return;
            }
        query_step s;
        s.kernel = kernel;
        s.column = column;
        s.what = what;
        s.rows_in = rows_in;
        s.rows_out = rows_out;
        s.seconds = seconds;
        steps_.push_back(s);
    }
    void add_all(const std::vector<query_step> &more) { steps_.insert(steps_.end(), more.begin(), more.end()); }
    const std::vector<query_step> &all() const { return steps_; }

private:
    std::vector<query_step> steps_;
};

class step_clock {
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace host
