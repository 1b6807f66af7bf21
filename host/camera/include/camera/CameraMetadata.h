/*
 * android::CameraMetadata of libcamera_client: a set of camera metadata entries, each a tag
 * with an array of values of the tag's declared type.
 *
 * Entries keep the order in which they were first added (their index); updating an entry
 * replaces its values in place. An update whose data type is not the tag's type, or of a tag
 * the type table does not know, is refused with INVALID_OPERATION and an error line, as the
 * platform does. Pointers from find() stay valid until the entry is next updated or erased.
 */
#pragma once

#include <system/camera_metadata.h>
#include <utils/Errors.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

class CameraMetadata {
public:
    CameraMetadata();
    // Capacities are hints; entries grow as needed.
    CameraMetadata(size_t entryCapacity, size_t dataCapacity = 10);
    ~CameraMetadata();
    CameraMetadata(const CameraMetadata& other);
    CameraMetadata& operator=(const CameraMetadata& other);
    CameraMetadata(CameraMetadata&& other) noexcept;
    CameraMetadata& operator=(CameraMetadata&& other) noexcept;

    bool isEmpty() const;
    size_t entryCount() const;
    void clear();

    status_t update(uint32_t tag, const uint8_t* data, size_t data_count);
    status_t update(uint32_t tag, const int32_t* data, size_t data_count);
    status_t update(uint32_t tag, const float* data, size_t data_count);
    status_t update(uint32_t tag, const int64_t* data, size_t data_count);
    status_t update(uint32_t tag, const double* data, size_t data_count);
    status_t update(uint32_t tag, const camera_metadata_rational_t* data, size_t data_count);
    status_t update(const camera_metadata_ro_entry& entry);

    bool exists(uint32_t tag) const;
    // The entry of `tag`; count 0 and null data when there is none.
    camera_metadata_entry find(uint32_t tag);
    camera_metadata_ro_entry find(uint32_t tag) const;
    // Removes the entry of `tag`; OK also when there was none.
    status_t erase(uint32_t tag);

private:
    struct Entry {
        uint32_t tag;
        uint8_t type;
        size_t count;
        std::vector<uint8_t> bytes;
    };

    status_t checkType(uint32_t tag, uint8_t expectedType) const;
    status_t updateImpl(uint32_t tag, uint8_t type, const void* data, size_t count);
    const Entry* findEntry(uint32_t tag, size_t* index) const;

    std::vector<Entry> mEntries;
};

}  // namespace android
