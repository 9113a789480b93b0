// Points, read from two columns of a CSV file.
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo_types.h>

#include "host/column/csv.h"

namespace host {

class point_file {
public:
    // The columns by their names; where one is empty, by the usual ones: latitude or lat, longitude, lon, lng or long.
    // Throws, with the line, for a field that is no number or no place on the globe. Rows with an empty field are no
    // points.
    point_file(const std::string &path, const std::string &longitude, const std::string &latitude);

    const csv_file &file() const { return file_; }
    ub4 size() const { return static_cast<ub4>(longitude_.size()); }
    const std::vector<double> &longitude() const { return longitude_; } // degrees
    const std::vector<double> &latitude() const { return latitude_; }
    // Which record of the file a point is, from 0.
    ub4 record(ub4 point) const { return record_[point]; }
    ub4 rows_without() const { return rows_without_; }

private:
    csv_file file_;
    std::vector<double> longitude_, latitude_;
    std::vector<ub4> record_;
    ub4 rows_without_ = 0;
};

} // namespace host
