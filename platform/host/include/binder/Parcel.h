#pragma once

#include <stddef.h>
#include <stdint.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <optional>
#include <string>
#include <vector>

namespace android {

class IBinder;
class IPCThreadState;

namespace hostbinder {
class ParcelAccess;
}

// A transaction's data in libbinder's byte layout: every item 4-byte aligned, binder
// objects and file descriptors as flat objects whose positions are remembered, so that
// a parcel written here reads the same on the device and vice versa.
class Parcel {
  public:
    Parcel();
    ~Parcel();

    const uint8_t* data() const { return mData; }
    size_t dataSize() const { return mDataSize > mDataPos ? mDataSize : mDataPos; }
    size_t dataAvail() const;
    size_t dataPosition() const { return mDataPos; }
    size_t dataCapacity() const { return mDataCapacity; }

    status_t setDataSize(size_t size);
    // Positions past the end are clamped when reading, as in libbinder.
    void setDataPosition(size_t pos) const;
    status_t setDataCapacity(size_t size);
    // Replaces the contents with plain bytes (no objects).
    status_t setData(const uint8_t* buffer, size_t len);
    void freeData();

    bool hasFileDescriptors() const;
    size_t objectsCount() const { return mObjects.size(); }

    // Kept for code written against newer libbinder; the host transport needs no hint.
    void markForBinder(const sp<IBinder>& binder);

    status_t errorCheck() const { return mError; }
    void setError(status_t err) { mError = err; }

    // Android 12's interface token: strict mode policy, work source uid, 'SYST', then
    // the descriptor as a String16.
    status_t writeInterfaceToken(const String16& interface);
    status_t writeInterfaceToken(const char16_t* str, size_t len);
    bool enforceInterface(const String16& interface, IPCThreadState* threadState = nullptr) const;
    bool enforceInterface(const char16_t* interface, size_t len,
                          IPCThreadState* threadState = nullptr) const;
    bool checkInterface(IBinder* binder) const;

    status_t write(const void* data, size_t len);
    void* writeInplace(size_t len);
    status_t writeUnpadded(const void* data, size_t len);
    status_t writeInt32(int32_t val);
    status_t writeUint32(uint32_t val);
    status_t writeInt64(int64_t val);
    status_t writeUint64(uint64_t val);
    status_t writeFloat(float val);
    status_t writeDouble(double val);
    status_t writeBool(bool val);
    status_t writeChar(char16_t val);
    status_t writeByte(int8_t val);
    status_t writeCString(const char* str);
    status_t writeString8(const String8& str);
    status_t writeString16(const String16& str);
    status_t writeString16(const std::optional<String16>& str);
    status_t writeString16(const char16_t* str, size_t len);
    // UTF-8 in, UTF-16 on the wire; invalid UTF-8 is BAD_VALUE.
    status_t writeUtf8AsUtf16(const std::string& str);
    status_t writeUtf8AsUtf16(const std::optional<std::string>& str);
    status_t writeStrongBinder(const sp<IBinder>& val);
    status_t writeNullableStrongBinder(const sp<IBinder>& val);
    status_t writeByteVector(const std::vector<int8_t>& val);
    status_t writeByteVector(const std::optional<std::vector<int8_t>>& val);
    status_t writeByteVector(const std::vector<uint8_t>& val);
    status_t writeByteVector(const std::optional<std::vector<uint8_t>>& val);
    status_t writeInt32Vector(const std::vector<int32_t>& val);
    // The parcel refers to fd without owning it unless takeOwnership.
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);
    // The parcel owns a duplicate of fd.
    status_t writeDupFileDescriptor(int fd);
    status_t writeNoException();

    status_t read(void* outData, size_t len) const;
    const void* readInplace(size_t len) const;
    int32_t readInt32() const;
    status_t readInt32(int32_t* pArg) const;
    uint32_t readUint32() const;
    status_t readUint32(uint32_t* pArg) const;
    int64_t readInt64() const;
    status_t readInt64(int64_t* pArg) const;
    uint64_t readUint64() const;
    status_t readUint64(uint64_t* pArg) const;
    float readFloat() const;
    status_t readFloat(float* pArg) const;
    double readDouble() const;
    status_t readDouble(double* pArg) const;
    bool readBool() const;
    status_t readBool(bool* pArg) const;
    char16_t readChar() const;
    status_t readChar(char16_t* pArg) const;
    int8_t readByte() const;
    status_t readByte(int8_t* pArg) const;
    const char* readCString() const;
    String8 readString8() const;
    status_t readString8(String8* pArg) const;
    String16 readString16() const;
    status_t readString16(String16* pArg) const;
    status_t readString16(std::optional<String16>* pArg) const;
    const char16_t* readString16Inplace(size_t* outLen) const;
    // UNEXPECTED_NULL for a null string, BAD_VALUE for invalid UTF-16.
    status_t readUtf8FromUtf16(std::string* str) const;
    status_t readUtf8FromUtf16(std::optional<std::string>* str) const;
    sp<IBinder> readStrongBinder() const;
    // UNEXPECTED_NULL for a null binder, BAD_TYPE where no binder object was written.
    status_t readStrongBinder(sp<IBinder>* val) const;
    status_t readNullableStrongBinder(sp<IBinder>* val) const;
    template <typename T>
    status_t readStrongBinder(sp<T>* val) const;
    template <typename T>
    status_t readNullableStrongBinder(sp<T>* val) const;
    status_t readByteVector(std::vector<int8_t>* val) const;
    status_t readByteVector(std::optional<std::vector<int8_t>>* val) const;
    status_t readByteVector(std::vector<uint8_t>* val) const;
    status_t readByteVector(std::optional<std::vector<uint8_t>>* val) const;
    status_t readInt32Vector(std::vector<int32_t>* val) const;
    // The descriptor stays owned by the parcel; BAD_TYPE when there is none here.
    int readFileDescriptor() const;
    int32_t readExceptionCode() const;

  private:
    friend class hostbinder::ParcelAccess;

    enum class ObjectKind { Binder, Fd };
    struct Object {
        size_t offset;
        ObjectKind kind;
        sp<IBinder> binder;
        int fd;
        bool ownsFd;
    };

    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    status_t growData(size_t len);
    status_t resizeData(size_t capacity);
    status_t finishWrite(size_t len);
    void dropObjectsIn(size_t begin, size_t end);
    void releaseObjects();
    template <typename T>
    status_t writeAligned(T val);
    template <typename T>
    status_t readAligned(T* pArg) const;
    template <typename T>
    T readAligned() const;
    status_t writeObject(const Object& object, uint32_t type, uint64_t binder, uint64_t cookie);
    const Object* readObject(ObjectKind kind, const uint8_t** flat) const;
    status_t flattenBinder(const sp<IBinder>& binder);
    status_t unflattenBinder(sp<IBinder>* out) const;
    template <typename T>
    status_t writeByteVectorInternal(const T* data, size_t size);
    template <typename T>
    status_t readByteVectorInternal(std::vector<T>* val) const;

    uint8_t* mData = nullptr;
    size_t mDataSize = 0;
    size_t mDataCapacity = 0;
    mutable size_t mDataPos = 0;
    status_t mError = OK;
    std::vector<Object> mObjects;
};

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* val) const {
    sp<IBinder> tmp;
    status_t ret = readStrongBinder(&tmp);
    if (ret == OK) {
        *val = T::asInterface(tmp);
        if (val->get() == nullptr && tmp.get() != nullptr) ret = UNKNOWN_ERROR;
    }
    return ret;
}

template <typename T>
status_t Parcel::readNullableStrongBinder(sp<T>* val) const {
    sp<IBinder> tmp;
    status_t ret = readNullableStrongBinder(&tmp);
    if (ret == OK) {
        *val = T::asInterface(tmp);
        if (val->get() == nullptr && tmp.get() != nullptr) ret = UNKNOWN_ERROR;
    }
    return ret;
}

}  // namespace android
