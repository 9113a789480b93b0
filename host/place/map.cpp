#include "host/place/map.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <numbers>

namespace host {

namespace {

constexpr double width = 1600; // of the picture; its height follows
constexpr double margin = 12, caption = 40;
constexpr const char *sea = "#f4f6f4", *land = "#8fb3a3", *dots = "#c8442f", *lines = "#dfe5e1", *words = "#5b6b64";

struct xy {
    double x, y;
};

// Longitude and latitude to the picture.
class projection {
public:
    explicit projection(const point_span &points) {
        for (ub4 i = 0; i < points.size(); i++)
            frame_.add(points.longitude[i], points.latitude[i]);
        world_ = points.size() == 0 || frame_.east - frame_.west >= 180;
        if (world_) {
            frame_ = {-180, -90, 180, 90};
            const double right = on_globe(180, 0).x, top = on_globe(0, 90).y;
            scale_ = (width - 2 * margin) / (2 * right);
            origin_ = {margin + scale_ * right, margin + scale_ * top};
            height_ = 2 * (margin + scale_ * top);
            return;
        }
        const double around =
            std::max({0.06 * (frame_.east - frame_.west), 0.06 * (frame_.north - frame_.south), 0.02});
        frame_.west = std::max(frame_.west - around, -180.0);
        frame_.east = std::min(frame_.east + around, 180.0);
        frame_.south = std::max(frame_.south - around, -90.0);
        frame_.north = std::min(frame_.north + around, 90.0);
        // Degrees of longitude are as wide as they are in the middle. No picture is more than twice as high as it is
        // wide.
        narrow_ = std::max(std::cos((frame_.south + frame_.north) / 2 * std::numbers::pi / 180), 0.05);
        scale_ = std::min(width / (frame_.east - frame_.west) / narrow_, 2 * width / (frame_.north - frame_.south));
        origin_ = {(width - scale_ * narrow_ * (frame_.east - frame_.west)) / 2, 0};
        height_ = scale_ * (frame_.north - frame_.south);
    }

    xy at(double longitude, double latitude) const {
        if (!world_)
            return {origin_.x + scale_ * narrow_ * (longitude - frame_.west), scale_ * (frame_.north - latitude)};
        const xy p = on_globe(longitude, latitude);
        return {origin_.x + scale_ * p.x, origin_.y - scale_ * p.y};
    }
    bool world() const { return world_; }
    double height() const { return height_; }
    const degree_box &frame() const { return frame_; }

private:
    // Equal Earth.
    static xy on_globe(double longitude, double latitude) {
        constexpr double a1 = 1.340264, a2 = -0.081106, a3 = 0.000893, a4 = 0.003796;
        const double degree = std::numbers::pi / 180, theta = std::asin(std::sqrt(3) / 2 * std::sin(latitude * degree)),
                     t2 = theta * theta, t6 = t2 * t2 * t2;
        return {2 * std::sqrt(3) * longitude * degree * std::cos(theta) /
                    (3 * (9 * a4 * t6 * t2 + 7 * a3 * t6 + 3 * a2 * t2 + a1)),
                theta * (a4 * t6 * t2 + a3 * t6 + a2 * t2 + a1)};
    }

    degree_box frame_;
    bool world_;
    double scale_ = 1, narrow_ = 1, height_ = 1;
    xy origin_{};
};

// A path of lines, in tenths of a unit and relative to the point before.
class path {
public:
    void begin(const xy &p) {
        here_[0] = here_[1] = 0;
        text_ += 'M';
        add(p);
        text_ += 'l';
        fresh_ = true;
    }
    void line(const xy &p) {
        if (!fresh_)
            text_ += ' ';
        fresh_ = false;
        add(p);
    }
    void close() { text_ += 'z'; }
    // A dot: a line of no length, which is drawn with round ends. Absolute.
    void dot(const xy &p) { text_ += fmt::format("M{:.1f} {:.1f}h0", p.x, p.y); }
    const std::string &text() const { return text_; }

private:
    void add(const xy &p) {
        const long to[2] = {std::lround(p.x * 10), std::lround(p.y * 10)};
        append(to[0] - here_[0]);
        if (to[1] >= here_[1])
            text_ += ' ';
        append(to[1] - here_[1]);
        here_[0] = to[0];
        here_[1] = to[1];
    }
    void append(long tenths) {
        if (tenths % 10 == 0)
            fmt::format_to(std::back_inserter(text_), "{}", tenths / 10);
        else
            fmt::format_to(std::back_inserter(text_), "{}{}.{}", tenths < 0 ? "-" : "",
                           std::abs(tenths) >= 10 ? std::to_string(std::abs(tenths) / 10) : "", std::abs(tenths) % 10);
    }
    std::string text_;
    long here_[2] = {};
    bool fresh_ = true;
};

// A ring without the vertices that are too near one another to be seen apart.
void add_ring(path &to, const place_ring &ring, const projection &map) {
    constexpr double seen = 0.9;
    std::vector<xy> kept;
    for (ub4 i = 0; i < ring.size(); i++) {
        const xy p = map.at(ring.longitude[i], ring.latitude[i]);
        if (kept.empty() || std::hypot(p.x - kept.back().x, p.y - kept.back().y) >= seen)
            kept.push_back(p);
    }
    if (kept.size() < 3) { // an island too small to be seen is shown as a small one
        const xy p = map.at(ring.longitude[0], ring.latitude[0]);
        kept = {{p.x - 0.4, p.y - 0.4}, {p.x + 0.4, p.y - 0.4}, {p.x, p.y + 0.4}};
    }
    to.begin(kept[0]);
    for (std::size_t i = 1; i < kept.size(); i++)
        to.line(kept[i]);
    to.close();
}

// The globe's outline, meridians and parallels.
std::string globe(const projection &map) {
    path outline, net;
    outline.begin(map.at(-180, -90));
    for (double side : {-180.0, 180.0})
        for (int i = -90; i <= 90; i += 2)
            outline.line(map.at(side, side < 0 ? i : -i));
    outline.close();
    for (int longitude = -150; longitude <= 150; longitude += 30) {
        net.begin(map.at(longitude, -90));
        for (int latitude = -88; latitude <= 90; latitude += 2)
            net.line(map.at(longitude, latitude));
    }
    for (int latitude = -60; latitude <= 60; latitude += 30) {
        net.begin(map.at(-180, latitude));
        net.line(map.at(180, latitude));
    }
    return fmt::format("<path fill=\"{}\" d=\"{}\"/>\n<path fill=\"none\" stroke=\"{}\" d=\"{}\"/>\n", sea,
                       outline.text(), lines, net.text());
}

std::string counted(std::size_t count, const char *one, const char *many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

} // namespace

std::string svg_map(const point_span &points, const std::vector<place> &places, const located &found) {
    const projection map(points);
    path shapes, in, out;
    for (const place &p : places)
        for (const place_ring &ring : p.rings)
            if (ring.size() != 0 && ring.box.meets(map.frame()))
                add_ring(shapes, ring, map);
    std::vector<bool> inside(points.size());
    std::size_t held = 0, holding = 0;
    for (const std::vector<ub4> &of_place : found) {
        holding += !of_place.empty();
        for (const ub4 p : of_place)
            inside[p] = true;
    }
    for (ub4 p = 0; p < points.size(); p++) {
        (inside[p] ? in : out).dot(map.at(points.longitude[p], points.latitude[p]));
        held += inside[p];
    }
    // Many points are small ones.
    const double size = std::clamp(160 / std::sqrt(static_cast<double>(points.size()) + 1), 2.2, 9.0);
    const double height = map.height() + caption;
    std::string svg = fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {:.0f} {:.0f}\">\n"
                                  "<rect width=\"100%\" height=\"100%\" fill=\"{}\"/>\n",
                                  width, height, map.world() ? "#ffffff" : sea);
    if (map.world())
        svg += globe(map);
    svg += fmt::format("<path fill=\"{}\" fill-rule=\"evenodd\" stroke=\"{}\" stroke-width=\".7\" "
                       "stroke-linejoin=\"round\" d=\"{}\"/>\n",
                       land, sea, shapes.text());
    const auto add_dots = [&](const path &of, const char *colour, double wide) {
        svg += fmt::format("<path fill=\"none\" stroke=\"{}\" stroke-width=\"{:.1f}\" stroke-linecap=\"round\" "
                           "d=\"{}\"/>\n",
                           colour, wide, of.text());
    };
    add_dots(in, dots, size);
    add_dots(out, dots, size + 1);
    add_dots(out, sea, size - 1);
    svg += fmt::format("<rect y=\"{:.1f}\" width=\"100%\" height=\"{}\" fill=\"#ffffff\"/>\n"
                       "<text x=\"{}\" y=\"{:.1f}\" font-family=\"sans-serif\" font-size=\"18\" fill=\"{}\" "
                       "text-anchor=\"middle\">{}: {} in {} of {}, {} in none (hollow)</text>\n</svg>\n",
                       map.height(), caption, width / 2, map.height() + 25, words,
                       counted(points.size(), "point", "points"), held, holding,
                       counted(places.size(), "place", "places"), points.size() - held);
    return svg;
}

} // namespace host
