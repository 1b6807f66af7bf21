/*
 * android::Rect: an ARect with the operations the graphics stack uses. Right and bottom are
 * exclusive. A default-constructed Rect is INVALID_RECT (0, 0, -1, -1); EMPTY_RECT is all zero.
 */
#pragma once

#include <android/rect.h>
#include <stdint.h>
#include <ui/Point.h>

#include <algorithm>
#include <ostream>

namespace android {

class Rect : public ARect {
public:
    typedef ARect::value_type value_type;

    static const Rect INVALID_RECT;
    static const Rect EMPTY_RECT;

    Rect() : Rect(INVALID_RECT) {}

    template <typename T>
    Rect(T w, T h) {
        left = top = 0;
        right = static_cast<int32_t>(w);
        bottom = static_cast<int32_t>(h);
    }

    Rect(int32_t l, int32_t t, int32_t r, int32_t b) {
        left = l;
        top = t;
        right = r;
        bottom = b;
    }

    Rect(const Point& lt, const Point& rb) {
        left = lt.x;
        top = lt.y;
        right = rb.x;
        bottom = rb.y;
    }

    Rect(const ARect& r) : ARect(r) {}

    void makeInvalid() { *this = INVALID_RECT; }

    void clear() { left = top = right = bottom = 0; }

    // a valid rectangle has a non negative width and height
    bool isValid() const { return (getWidth() >= 0) && (getHeight() >= 0); }

    // an empty rect has a zero width or height, or is invalid
    bool isEmpty() const { return (getWidth() <= 0) || (getHeight() <= 0); }

    int32_t getWidth() const { return right - left; }
    int32_t getHeight() const { return bottom - top; }
    int32_t width() const { return getWidth(); }
    int32_t height() const { return getHeight(); }

    Rect getBounds() const { return Rect(right - left, bottom - top); }

    Point leftTop() const { return Point(left, top); }
    Point rightBottom() const { return Point(right, bottom); }

    bool operator==(const Rect& rhs) const {
        return left == rhs.left && top == rhs.top && right == rhs.right && bottom == rhs.bottom;
    }
    bool operator!=(const Rect& rhs) const { return !operator==(rhs); }

    Rect& offsetTo(int32_t x, int32_t y) {
        right -= left - x;
        bottom -= top - y;
        left = x;
        top = y;
        return *this;
    }

    Rect& offsetBy(int32_t x, int32_t y) {
        left += x;
        top += y;
        right += x;
        bottom += y;
        return *this;
    }

    // Writes the intersection of this and `with` to `result`; false when it is empty.
    bool intersect(const Rect& with, Rect* result) const {
        result->left = std::max(left, with.left);
        result->top = std::max(top, with.top);
        result->right = std::min(right, with.right);
        result->bottom = std::min(bottom, with.bottom);
        return !(result->isEmpty());
    }

    bool contains(int32_t x, int32_t y) const {
        return x >= left && x < right && y >= top && y < bottom;
    }
};

inline const Rect Rect::INVALID_RECT{0, 0, -1, -1};
inline const Rect Rect::EMPTY_RECT{0, 0, 0, 0};

inline std::ostream& operator<<(std::ostream& os, const Rect& rect) {
    return os << "Rect(" << rect.left << ", " << rect.top << ", " << rect.right << ", "
              << rect.bottom << ")";
}

}  // namespace android
