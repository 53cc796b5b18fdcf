#define LOG_TAG "Parcel"

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/Stability.h>
#include <binder/Status.h>
#include <fcntl.h>
#include <log/log.h>
#include <lumacast/host/Utf.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "FlatObject.h"

namespace android {

using hostbinder::BINDER_TYPE_BINDER;
using hostbinder::BINDER_TYPE_FD;
using hostbinder::BINDER_TYPE_HANDLE;
using hostbinder::FlatObject;

namespace {

// Android 12 system builds; vendor code would write 'VNDR'.
constexpr int32_t kHeader = B_PACK_CHARS('S', 'Y', 'S', 'T');
constexpr int32_t STRICT_MODE_PENALTY_GATHER = static_cast<int32_t>(1u << 31);
constexpr size_t kMaxParcelSize = static_cast<size_t>(std::numeric_limits<int32_t>::max());

constexpr size_t padSize(size_t s) { return (s + 3) & ~static_cast<size_t>(3); }

}  // namespace

Parcel::Parcel() = default;

Parcel::~Parcel() { freeData(); }

size_t Parcel::dataAvail() const { return dataSize() - mDataPos; }

void Parcel::setDataPosition(size_t pos) const { mDataPos = std::min(pos, kMaxParcelSize); }

status_t Parcel::resizeData(size_t capacity) {
    if (capacity > kMaxParcelSize) return BAD_VALUE;
    if (capacity == mDataCapacity) return OK;
    uint8_t* data = static_cast<uint8_t*>(realloc(mData, capacity ? capacity : 1));
    if (data == nullptr) return NO_MEMORY;
    if (capacity > mDataCapacity) memset(data + mDataCapacity, 0, capacity - mDataCapacity);
    mData = data;
    mDataCapacity = capacity;
    return OK;
}

status_t Parcel::growData(size_t len) {
    const size_t used = std::max(mDataSize, mDataPos);
    if (len > kMaxParcelSize || used + len > kMaxParcelSize) return BAD_VALUE;
    const size_t wanted =
            std::min(std::max((used + len) * 3 / 2, static_cast<size_t>(128)), kMaxParcelSize);
    const status_t err = resizeData(wanted);
    if (err != OK) mError = err;
    return err;
}

status_t Parcel::setDataSize(size_t size) {
    if (size > kMaxParcelSize) return BAD_VALUE;
    if (size > mDataCapacity) {
        const status_t err = resizeData(size);
        if (err != OK) return err;
    }
    if (size < mDataSize) {
        dropObjectsIn(size, std::numeric_limits<size_t>::max());
        memset(mData + size, 0, mDataSize - size);
    }
    mDataSize = size;
    if (mDataPos > size) mDataPos = size;
    return OK;
}

status_t Parcel::setDataCapacity(size_t size) {
    if (size > kMaxParcelSize) return BAD_VALUE;
    if (size > mDataCapacity) return resizeData(size);
    return OK;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    if (len > kMaxParcelSize) return BAD_VALUE;
    freeData();
    const status_t err = resizeData(len);
    if (err != OK) return err;
    if (len > 0) memcpy(mData, buffer, len);
    mDataSize = len;
    return OK;
}

void Parcel::freeData() {
    releaseObjects();
    free(mData);
    mData = nullptr;
    mDataSize = 0;
    mDataCapacity = 0;
    mDataPos = 0;
    mError = OK;
}

void Parcel::releaseObjects() {
    for (Object& o : mObjects) {
        if (o.kind == ObjectKind::Fd && o.ownsFd && o.fd >= 0) close(o.fd);
    }
    mObjects.clear();
}

void Parcel::dropObjectsIn(size_t begin, size_t end) {
    // An object partly overwritten by plain data is no object any more.
    auto it = std::remove_if(mObjects.begin(), mObjects.end(), [&](Object& o) {
        const bool hit = o.offset < end && o.offset + sizeof(FlatObject) > begin;
        if (hit && o.kind == ObjectKind::Fd && o.ownsFd && o.fd >= 0) close(o.fd);
        return hit;
    });
    mObjects.erase(it, mObjects.end());
}

bool Parcel::hasFileDescriptors() const {
    return std::any_of(mObjects.begin(), mObjects.end(),
                       [](const Object& o) { return o.kind == ObjectKind::Fd; });
}

void Parcel::markForBinder(const sp<IBinder>&) {}

status_t Parcel::finishWrite(size_t len) {
    if (!mObjects.empty()) dropObjectsIn(mDataPos, mDataPos + len);
    mDataPos += len;
    if (mDataPos > mDataSize) mDataSize = mDataPos;
    return OK;
}

void* Parcel::writeInplace(size_t len) {
    if (len > kMaxParcelSize) return nullptr;
    const size_t padded = padSize(len);
    if (mDataPos + padded < mDataPos) return nullptr;
    if (mDataPos + padded > mDataCapacity && growData(padded) != OK) return nullptr;
    uint8_t* const data = mData + mDataPos;
    // Padding bytes are always zero, so equal parcels are equal bytes.
    if (padded != len) memset(data + padded - 4, 0, 4);
    finishWrite(padded);
    return data;
}

status_t Parcel::write(const void* data, size_t len) {
    if (len > kMaxParcelSize) return BAD_VALUE;
    void* const d = writeInplace(len);
    if (d == nullptr) return mError != OK ? mError : BAD_VALUE;
    if (len > 0) memcpy(d, data, len);
    return OK;
}

status_t Parcel::writeUnpadded(const void* data, size_t len) {
    if (len > kMaxParcelSize) return BAD_VALUE;
    if (mDataPos + len > mDataCapacity) {
        const status_t err = growData(len);
        if (err != OK) return err;
    }
    if (len > 0) memcpy(mData + mDataPos, data, len);
    return finishWrite(len);
}

template <typename T>
status_t Parcel::writeAligned(T val) {
    static_assert(padSize(sizeof(T)) == sizeof(T), "only whole words are written aligned");
    if (mDataPos + sizeof(T) > mDataCapacity) {
        const status_t err = growData(sizeof(T));
        if (err != OK) return err;
    }
    memcpy(mData + mDataPos, &val, sizeof(T));
    return finishWrite(sizeof(T));
}

template <typename T>
status_t Parcel::readAligned(T* pArg) const {
    if (mDataPos > mDataSize || sizeof(T) > mDataSize - mDataPos) return NOT_ENOUGH_DATA;
    memcpy(pArg, mData + mDataPos, sizeof(T));
    mDataPos += sizeof(T);
    return OK;
}

template <typename T>
T Parcel::readAligned() const {
    T result{};
    if (readAligned(&result) != OK) result = T{};
    return result;
}

status_t Parcel::writeInt32(int32_t val) { return writeAligned(val); }
status_t Parcel::writeUint32(uint32_t val) { return writeAligned(val); }
status_t Parcel::writeInt64(int64_t val) { return writeAligned(val); }
status_t Parcel::writeUint64(uint64_t val) { return writeAligned(val); }
status_t Parcel::writeFloat(float val) { return writeAligned(val); }
status_t Parcel::writeDouble(double val) { return writeAligned(val); }
status_t Parcel::writeBool(bool val) { return writeInt32(static_cast<int32_t>(val)); }
status_t Parcel::writeChar(char16_t val) { return writeInt32(static_cast<int32_t>(val)); }
status_t Parcel::writeByte(int8_t val) { return writeInt32(static_cast<int32_t>(val)); }
status_t Parcel::writeNoException() { return writeInt32(0); }

status_t Parcel::writeCString(const char* str) {
    if (str == nullptr) return BAD_VALUE;
    return write(str, strlen(str) + 1);
}

status_t Parcel::writeString8(const String8& str) {
    const size_t len = str.size();
    if (len >= kMaxParcelSize) return BAD_VALUE;
    status_t err = writeInt32(static_cast<int32_t>(len));
    if (err != OK) return err;
    uint8_t* const data = static_cast<uint8_t*>(writeInplace(len + 1));
    if (data == nullptr) return mError != OK ? mError : NO_MEMORY;
    memcpy(data, str.c_str(), len);
    data[len] = 0;
    return OK;
}

status_t Parcel::writeString16(const String16& str) {
    return writeString16(str.c_str(), str.size());
}

status_t Parcel::writeString16(const std::optional<String16>& str) {
    if (!str) return writeInt32(-1);
    return writeString16(*str);
}

status_t Parcel::writeString16(const char16_t* str, size_t len) {
    if (str == nullptr) return writeInt32(-1);
    if (len >= kMaxParcelSize / sizeof(char16_t)) return BAD_VALUE;
    status_t err = writeInt32(static_cast<int32_t>(len));
    if (err != OK) return err;
    const size_t bytes = len * sizeof(char16_t);
    uint8_t* const data = static_cast<uint8_t*>(writeInplace(bytes + sizeof(char16_t)));
    if (data == nullptr) return mError != OK ? mError : NO_MEMORY;
    if (bytes > 0) memcpy(data, str, bytes);
    memset(data + bytes, 0, sizeof(char16_t));
    return OK;
}

status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
    std::u16string utf16;
    if (!lumacast::host::utf8ToUtf16(str, &utf16)) return BAD_VALUE;
    return writeString16(utf16.c_str(), utf16.size());
}

status_t Parcel::writeUtf8AsUtf16(const std::optional<std::string>& str) {
    if (!str) return writeInt32(-1);
    return writeUtf8AsUtf16(*str);
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    return writeInterfaceToken(interface.c_str(), interface.size());
}

status_t Parcel::writeInterfaceToken(const char16_t* str, size_t len) {
    const IPCThreadState* const ts = IPCThreadState::self();
    status_t err = writeInt32(ts->getStrictModePolicy() | STRICT_MODE_PENALTY_GATHER);
    if (err != OK) return err;
    err = writeInt32(ts->shouldPropagateWorkSource()
                             ? static_cast<int32_t>(ts->getCallingWorkSourceUid())
                             : IPCThreadState::kUnsetWorkSource);
    if (err != OK) return err;
    err = writeInt32(kHeader);
    if (err != OK) return err;
    return writeString16(str, len);
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState* threadState) const {
    return enforceInterface(interface.c_str(), interface.size(), threadState);
}

bool Parcel::enforceInterface(const char16_t* interface, size_t len,
                              IPCThreadState* threadState) const {
    if (threadState == nullptr) threadState = IPCThreadState::self();
    const int32_t strictPolicy = readInt32();
    if ((threadState->getLastTransactionBinderFlags() & IBinder::FLAG_ONEWAY) != 0) {
        threadState->setStrictModePolicy(0);
    } else {
        threadState->setStrictModePolicy(strictPolicy);
    }
    const int32_t workSource = readInt32();
    threadState->setCallingWorkSourceUidWithoutPropagation(static_cast<uid_t>(workSource));
    const int32_t header = readInt32();
    if (header != kHeader) {
        ALOGE("Expecting header 0x%x but found 0x%x. Mixing copies of libbinder?", kHeader, header);
        return false;
    }
    size_t parcelLen = 0;
    const char16_t* const parcelInterface = readString16Inplace(&parcelLen);
    if (parcelInterface != nullptr && len == parcelLen &&
        (len == 0 || memcmp(parcelInterface, interface, len * sizeof(char16_t)) == 0)) {
        return true;
    }
    ALOGW("**** enforceInterface() expected '%s' but read '%s'", String8(interface, len).c_str(),
          parcelInterface ? String8(parcelInterface, parcelLen).c_str() : "<none>");
    return false;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

status_t Parcel::read(void* outData, size_t len) const {
    if (len > kMaxParcelSize) return BAD_VALUE;
    const void* const src = readInplace(len);
    if (src == nullptr) return NOT_ENOUGH_DATA;
    if (len > 0) memcpy(outData, src, len);
    return OK;
}

const void* Parcel::readInplace(size_t len) const {
    if (len > kMaxParcelSize) return nullptr;
    const size_t padded = padSize(len);
    if (mDataPos > mDataSize || padded > mDataSize - mDataPos) return nullptr;
    const void* const data = mData + mDataPos;
    mDataPos += padded;
    return data;
}

int32_t Parcel::readInt32() const { return readAligned<int32_t>(); }
status_t Parcel::readInt32(int32_t* pArg) const { return readAligned(pArg); }
uint32_t Parcel::readUint32() const { return readAligned<uint32_t>(); }
status_t Parcel::readUint32(uint32_t* pArg) const { return readAligned(pArg); }
int64_t Parcel::readInt64() const { return readAligned<int64_t>(); }
status_t Parcel::readInt64(int64_t* pArg) const { return readAligned(pArg); }
uint64_t Parcel::readUint64() const { return readAligned<uint64_t>(); }
status_t Parcel::readUint64(uint64_t* pArg) const { return readAligned(pArg); }
float Parcel::readFloat() const { return readAligned<float>(); }
status_t Parcel::readFloat(float* pArg) const { return readAligned(pArg); }
double Parcel::readDouble() const { return readAligned<double>(); }
status_t Parcel::readDouble(double* pArg) const { return readAligned(pArg); }

bool Parcel::readBool() const { return readInt32() != 0; }

status_t Parcel::readBool(bool* pArg) const {
    int32_t tmp = 0;
    const status_t ret = readInt32(&tmp);
    *pArg = (tmp != 0);
    return ret;
}

char16_t Parcel::readChar() const { return static_cast<char16_t>(readInt32()); }

status_t Parcel::readChar(char16_t* pArg) const {
    int32_t tmp = 0;
    const status_t ret = readInt32(&tmp);
    *pArg = static_cast<char16_t>(tmp);
    return ret;
}

int8_t Parcel::readByte() const { return static_cast<int8_t>(readInt32()); }

status_t Parcel::readByte(int8_t* pArg) const {
    int32_t tmp = 0;
    const status_t ret = readInt32(&tmp);
    *pArg = static_cast<int8_t>(tmp);
    return ret;
}

const char* Parcel::readCString() const {
    if (mDataPos >= mDataSize) return nullptr;
    const size_t avail = mDataSize - mDataPos;
    const char* const str = reinterpret_cast<const char*>(mData + mDataPos);
    const void* const eos = memchr(str, 0, avail);
    if (eos == nullptr) return nullptr;
    const size_t len = static_cast<const char*>(eos) - str;
    mDataPos = std::min(mDataPos + padSize(len + 1), mDataSize);
    return str;
}

status_t Parcel::readString8(String8* pArg) const {
    const int32_t size = readInt32();
    if (size >= 0 && size < std::numeric_limits<int32_t>::max()) {
        const char* const str =
                static_cast<const char*>(readInplace(static_cast<size_t>(size) + 1));
        if (str != nullptr && str[size] == '\0') {
            *pArg = String8(str, static_cast<size_t>(size));
            return OK;
        }
    }
    *pArg = String8();
    return UNEXPECTED_NULL;
}

String8 Parcel::readString8() const {
    String8 result;
    readString8(&result);
    return result;
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
    const int32_t size = readInt32();
    if (size >= 0 && size < std::numeric_limits<int32_t>::max()) {
        const size_t units = static_cast<size_t>(size);
        const uint8_t* const bytes =
                static_cast<const uint8_t*>(readInplace((units + 1) * sizeof(char16_t)));
        // Positions set by hand may be odd; a misaligned char16_t pointer is refused.
        if (bytes != nullptr && reinterpret_cast<uintptr_t>(bytes) % alignof(char16_t) == 0) {
            const char16_t* const str = reinterpret_cast<const char16_t*>(bytes);
            if (str[units] == u'\0') {
                *outLen = units;
                return str;
            }
        }
    }
    *outLen = 0;
    return nullptr;
}

status_t Parcel::readString16(String16* pArg) const {
    size_t len = 0;
    const char16_t* const str = readString16Inplace(&len);
    if (str == nullptr) {
        *pArg = String16();
        return UNEXPECTED_NULL;
    }
    pArg->setTo(str, len);
    return OK;
}

String16 Parcel::readString16() const {
    String16 result;
    readString16(&result);
    return result;
}

status_t Parcel::readString16(std::optional<String16>* pArg) const {
    const size_t start = mDataPos;
    if (readInt32() == -1) {
        pArg->reset();
        return OK;
    }
    mDataPos = start;
    String16 value;
    const status_t err = readString16(&value);
    if (err == OK) *pArg = std::move(value);
    return err;
}

status_t Parcel::readUtf8FromUtf16(std::string* str) const {
    size_t units = 0;
    const char16_t* const src = readString16Inplace(&units);
    if (src == nullptr) return UNEXPECTED_NULL;
    // Unpaired surrogates are dropped, as libbinder does.
    lumacast::host::utf16ToUtf8(std::u16string_view(src, units), str);
    return OK;
}

status_t Parcel::readUtf8FromUtf16(std::optional<std::string>* str) const {
    const size_t start = mDataPos;
    if (readInt32() == -1) {
        str->reset();
        return OK;
    }
    mDataPos = start;
    std::string value;
    const status_t err = readUtf8FromUtf16(&value);
    if (err == OK) *str = std::move(value);
    return err;
}

status_t Parcel::writeObject(const Object& object, uint32_t type, uint64_t binder,
                             uint64_t cookie) {
    const FlatObject flat{type,
                          object.kind == ObjectKind::Fd ? hostbinder::kFdObjectFlags
                                                        : hostbinder::kBinderObjectFlags,
                          binder, cookie};
    if (mDataPos + sizeof(flat) > mDataCapacity) {
        const status_t err = growData(sizeof(flat));
        if (err != OK) return err;
    }
    const size_t offset = mDataPos;
    hostbinder::storeFlat(mData + offset, flat);
    finishWrite(sizeof(flat));
    Object entry = object;
    entry.offset = offset;
    auto pos = std::lower_bound(mObjects.begin(), mObjects.end(), offset,
                                [](const Object& o, size_t off) { return o.offset < off; });
    mObjects.insert(pos, std::move(entry));
    return OK;
}

const Parcel::Object* Parcel::readObject(ObjectKind kind, const uint8_t** flat) const {
    *flat = nullptr;
    const size_t pos = mDataPos;
    if (pos > mDataSize || sizeof(FlatObject) > mDataSize - pos) return nullptr;
    *flat = mData + pos;
    mDataPos = pos + sizeof(FlatObject);
    auto it = std::lower_bound(mObjects.begin(), mObjects.end(), pos,
                               [](const Object& o, size_t off) { return o.offset < off; });
    if (it == mObjects.end() || it->offset != pos || it->kind != kind) return nullptr;
    return &*it;
}

status_t Parcel::flattenBinder(const sp<IBinder>& binder) {
    status_t err;
    if (binder == nullptr) {
        // A null binder is a zeroed object that is not in the object table.
        const FlatObject flat{BINDER_TYPE_BINDER, hostbinder::kBinderObjectFlags, 0, 0};
        err = write(&flat, sizeof(flat));
    } else {
        Object object{0, ObjectKind::Binder, binder, -1, false};
        if (BBinder* local = binder->localBinder()) {
            err = writeObject(object, BINDER_TYPE_BINDER,
                              reinterpret_cast<uintptr_t>(local->getWeakRefs()),
                              reinterpret_cast<uintptr_t>(local));
        } else {
            err = writeObject(object, BINDER_TYPE_HANDLE,
                              reinterpret_cast<uintptr_t>(binder->remoteBinder()), 0);
        }
    }
    if (err != OK) return err;
    internal::Stability::tryMarkCompilationUnit(binder.get());
    return writeInt32(internal::Stability::getRepr(binder.get()));
}

status_t Parcel::unflattenBinder(sp<IBinder>* out) const {
    const uint8_t* flat = nullptr;
    const Object* const object = readObject(ObjectKind::Binder, &flat);
    sp<IBinder> binder;
    if (object != nullptr) {
        binder = object->binder;
    } else if (flat != nullptr) {
        const FlatObject f = hostbinder::loadFlat(flat);
        if (f.type != BINDER_TYPE_BINDER || f.binder != 0 || f.cookie != 0) return BAD_TYPE;
    } else {
        return BAD_TYPE;
    }
    int32_t stability = 0;
    status_t err = readInt32(&stability);
    if (err != OK) return err;
    err = internal::Stability::setRepr(binder.get(), stability);
    if (err != OK) return err;
    *out = std::move(binder);
    return OK;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) { return flattenBinder(val); }

status_t Parcel::writeNullableStrongBinder(const sp<IBinder>& val) { return flattenBinder(val); }

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> val;
    // Null either way; the error does not matter to this form.
    readNullableStrongBinder(&val);
    return val;
}

status_t Parcel::readStrongBinder(sp<IBinder>* val) const {
    status_t status = readNullableStrongBinder(val);
    if (status == OK && val->get() == nullptr) status = UNEXPECTED_NULL;
    return status;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* val) const { return unflattenBinder(val); }

template <typename T>
status_t Parcel::writeByteVectorInternal(const T* data, size_t size) {
    if (size > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return BAD_VALUE;
    const status_t status = writeInt32(static_cast<int32_t>(size));
    if (status != OK) return status;
    return write(data, size);
}

status_t Parcel::writeByteVector(const std::vector<int8_t>& val) {
    return writeByteVectorInternal(val.data(), val.size());
}

status_t Parcel::writeByteVector(const std::optional<std::vector<int8_t>>& val) {
    if (!val) return writeInt32(-1);
    return writeByteVectorInternal(val->data(), val->size());
}

status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) {
    return writeByteVectorInternal(val.data(), val.size());
}

status_t Parcel::writeByteVector(const std::optional<std::vector<uint8_t>>& val) {
    if (!val) return writeInt32(-1);
    return writeByteVectorInternal(val->data(), val->size());
}

template <typename T>
status_t Parcel::readByteVectorInternal(std::vector<T>* val) const {
    val->clear();
    int32_t size = 0;
    const status_t status = readInt32(&size);
    if (status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    // Checked before allocating, so a hostile length costs nothing.
    if (static_cast<size_t>(size) > dataAvail()) return BAD_VALUE;
    const T* const data = static_cast<const T*>(readInplace(static_cast<size_t>(size)));
    if (data == nullptr) return BAD_VALUE;
    val->assign(data, data + size);
    return OK;
}

status_t Parcel::readByteVector(std::vector<int8_t>* val) const {
    return readByteVectorInternal(val);
}

status_t Parcel::readByteVector(std::vector<uint8_t>* val) const {
    return readByteVectorInternal(val);
}

status_t Parcel::readByteVector(std::optional<std::vector<int8_t>>* val) const {
    const size_t start = mDataPos;
    if (readInt32() == -1) {
        val->reset();
        return OK;
    }
    mDataPos = start;
    val->emplace();
    return readByteVectorInternal(&**val);
}

status_t Parcel::readByteVector(std::optional<std::vector<uint8_t>>* val) const {
    const size_t start = mDataPos;
    if (readInt32() == -1) {
        val->reset();
        return OK;
    }
    mDataPos = start;
    val->emplace();
    return readByteVectorInternal(&**val);
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
    if (val.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; status == OK && i < val.size(); ++i) status = writeInt32(val[i]);
    return status;
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* val) const {
    val->clear();
    int32_t size = 0;
    status_t status = readInt32(&size);
    if (status != OK) return status;
    if (size < 0) return UNEXPECTED_NULL;
    if (static_cast<size_t>(size) > dataAvail() / sizeof(int32_t)) return BAD_VALUE;
    val->resize(static_cast<size_t>(size));
    for (int32_t i = 0; status == OK && i < size; ++i) status = readInt32(&(*val)[i]);
    return status;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    if (fd < 0) return BAD_VALUE;
    const Object object{0, ObjectKind::Fd, nullptr, fd, takeOwnership};
    return writeObject(object, BINDER_TYPE_FD, static_cast<uint32_t>(fd), takeOwnership ? 1 : 0);
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    const int dupFd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (dupFd < 0) return -errno;
    const status_t err = writeFileDescriptor(dupFd, true);
    if (err != OK) close(dupFd);
    return err;
}

int Parcel::readFileDescriptor() const {
    const uint8_t* flat = nullptr;
    const Object* const object = readObject(ObjectKind::Fd, &flat);
    if (object == nullptr) return BAD_TYPE;
    return object->fd;
}

int32_t Parcel::readExceptionCode() const {
    binder::Status status;
    status.readFromParcel(*this);
    return status.exceptionCode();
}

}  // namespace android
