// A point with integer coordinates.
#pragma once

#include <stdint.h>

namespace android {

class Point {
public:
    int32_t x;
    int32_t y;

    Point() : x(0), y(0) {}
    Point(int32_t x, int32_t y) : x(x), y(y) {}

    bool operator==(const Point& rhs) const { return x == rhs.x && y == rhs.y; }
    bool operator!=(const Point& rhs) const { return !operator==(rhs); }
    bool isOrigin() const { return !(x | y); }

    Point& operator+=(const Point& rhs) {
        x += rhs.x;
        y += rhs.y;
        return *this;
    }
    Point& operator-=(const Point& rhs) {
        x -= rhs.x;
        y -= rhs.y;
        return *this;
    }
    const Point operator+(const Point& rhs) const { return Point(x + rhs.x, y + rhs.y); }
    const Point operator-(const Point& rhs) const { return Point(x - rhs.x, y - rhs.y); }
};

}  // namespace android
