// android::CameraMetadata over a vector of typed entries.

#define LOG_TAG "Camera2-Metadata"

#include <camera/CameraMetadata.h>
#include <log/log.h>

#include <cstring>
#include <utility>

namespace android {

CameraMetadata::CameraMetadata() = default;

CameraMetadata::CameraMetadata(size_t entryCapacity, size_t /*dataCapacity*/) {
    mEntries.reserve(entryCapacity);
}

CameraMetadata::~CameraMetadata() = default;
CameraMetadata::CameraMetadata(const CameraMetadata& other) = default;
CameraMetadata& CameraMetadata::operator=(const CameraMetadata& other) = default;
CameraMetadata::CameraMetadata(CameraMetadata&& other) noexcept = default;
CameraMetadata& CameraMetadata::operator=(CameraMetadata&& other) noexcept = default;

bool CameraMetadata::isEmpty() const {
    return mEntries.empty();
}

size_t CameraMetadata::entryCount() const {
    return mEntries.size();
}

void CameraMetadata::clear() {
    mEntries.clear();
}

status_t CameraMetadata::checkType(uint32_t tag, uint8_t expectedType) const {
    int tagType = get_camera_metadata_tag_type(tag);
    if (tagType == -1) {
        ALOGE("Update metadata entry: Unknown tag %d", tag);
        return INVALID_OPERATION;
    }
    if (tagType != expectedType) {
        ALOGE("Mismatched tag type when updating entry %s (%d) of type %s; got type %s data "
              "instead ",
              get_camera_metadata_tag_name(tag), tag, camera_metadata_type_names[tagType],
              expectedType < NUM_TYPES ? camera_metadata_type_names[expectedType] : "unknown");
        return INVALID_OPERATION;
    }
    return OK;
}

status_t CameraMetadata::updateImpl(uint32_t tag, uint8_t type, const void* data, size_t count) {
    status_t res = checkType(tag, type);
    if (res != OK) return res;
    if (data == nullptr && count > 0) {
        ALOGE("%s: null data for %zu values of tag %#x", __FUNCTION__, count, tag);
        return BAD_VALUE;
    }
    size_t byteCount = count * camera_metadata_type_size[type];
    std::vector<uint8_t> bytes(byteCount);
    if (byteCount > 0) memcpy(bytes.data(), data, byteCount);

    size_t index = 0;
    if (findEntry(tag, &index) != nullptr) {
        mEntries[index].count = count;
        mEntries[index].bytes = std::move(bytes);
    } else {
        mEntries.push_back(Entry{tag, type, count, std::move(bytes)});
    }
    return OK;
}

status_t CameraMetadata::update(uint32_t tag, const uint8_t* data, size_t data_count) {
    return updateImpl(tag, TYPE_BYTE, data, data_count);
}

status_t CameraMetadata::update(uint32_t tag, const int32_t* data, size_t data_count) {
    return updateImpl(tag, TYPE_INT32, data, data_count);
}

status_t CameraMetadata::update(uint32_t tag, const float* data, size_t data_count) {
    return updateImpl(tag, TYPE_FLOAT, data, data_count);
}

status_t CameraMetadata::update(uint32_t tag, const int64_t* data, size_t data_count) {
    return updateImpl(tag, TYPE_INT64, data, data_count);
}

status_t CameraMetadata::update(uint32_t tag, const double* data, size_t data_count) {
    return updateImpl(tag, TYPE_DOUBLE, data, data_count);
}

status_t CameraMetadata::update(uint32_t tag, const camera_metadata_rational_t* data,
                                size_t data_count) {
    return updateImpl(tag, TYPE_RATIONAL, data, data_count);
}

status_t CameraMetadata::update(const camera_metadata_ro_entry& entry) {
    return updateImpl(entry.tag, entry.type, entry.data.u8, entry.count);
}

const CameraMetadata::Entry* CameraMetadata::findEntry(uint32_t tag, size_t* index) const {
    for (size_t i = 0; i < mEntries.size(); ++i) {
        if (mEntries[i].tag == tag) {
            *index = i;
            return &mEntries[i];
        }
    }
    return nullptr;
}

bool CameraMetadata::exists(uint32_t tag) const {
    size_t index = 0;
    return findEntry(tag, &index) != nullptr;
}

camera_metadata_entry CameraMetadata::find(uint32_t tag) {
    camera_metadata_entry entry{};
    size_t index = 0;
    if (findEntry(tag, &index) == nullptr) return entry;
    Entry& found = mEntries[index];
    entry.index = index;
    entry.tag = found.tag;
    entry.type = found.type;
    entry.count = found.count;
    entry.data.u8 = found.bytes.empty() ? nullptr : found.bytes.data();
    return entry;
}

camera_metadata_ro_entry CameraMetadata::find(uint32_t tag) const {
    camera_metadata_ro_entry entry{};
    size_t index = 0;
    const Entry* found = findEntry(tag, &index);
    if (found == nullptr) return entry;
    entry.index = index;
    entry.tag = found->tag;
    entry.type = found->type;
    entry.count = found->count;
    entry.data.u8 = found->bytes.empty() ? nullptr : found->bytes.data();
    return entry;
}

status_t CameraMetadata::erase(uint32_t tag) {
    size_t index = 0;
    if (findEntry(tag, &index) != nullptr) {
        mEntries.erase(mEntries.begin() + static_cast<std::ptrdiff_t>(index));
    }
    return OK;
}

}  // namespace android
