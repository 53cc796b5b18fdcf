// Parcel bytes must be libbinder's, and hostile bytes must be refused without harm.
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/Stability.h>
#include <binder/Status.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/unit/binder/BinderTestSupport.h"

using namespace android;
using android::binder::Status;
using lumacast::test::openFdCount;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes bytesOf(const Parcel& p) { return Bytes(p.data(), p.data() + p.dataSize()); }

void le32(Bytes* b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

Bytes words(std::initializer_list<uint32_t> values) {
    Bytes b;
    for (uint32_t v : values) le32(&b, v);
    return b;
}

Parcel* parcelOf(const Bytes& b) {
    Parcel* p = new Parcel();
    p->setData(b.data(), b.size());
    return p;
}

TEST(ParcelLayoutTest, ScalarsAreLittleEndianWords) {
    Parcel p;
    ASSERT_EQ(p.writeInt32(-2), OK);
    ASSERT_EQ(p.writeBool(true), OK);
    ASSERT_EQ(p.writeBool(false), OK);
    EXPECT_EQ(bytesOf(p), (Bytes{0xfe, 0xff, 0xff, 0xff, 1, 0, 0, 0, 0, 0, 0, 0}));
    p.setDataPosition(0);
    EXPECT_EQ(p.readInt32(), -2);
    bool b = false;
    EXPECT_EQ(p.readBool(&b), OK);
    EXPECT_TRUE(b);
    EXPECT_EQ(p.readBool(&b), OK);
    EXPECT_FALSE(b);
    int32_t v = 5;
    EXPECT_EQ(p.readInt32(&v), NOT_ENOUGH_DATA);
    EXPECT_EQ(p.readInt32(), 0);
}

TEST(ParcelLayoutTest, StringsAreUtf16WithLengthTerminatorAndPadding) {
    Parcel p;
    ASSERT_EQ(p.writeString16(String16(u"ab")), OK);
    ASSERT_EQ(p.writeString16(std::optional<String16>()), OK);
    // U+00E9 is one unit, U+1D11E a surrogate pair.
    ASSERT_EQ(p.writeUtf8AsUtf16(std::string("\xc3\xa9\xf0\x9d\x84\x9e")), OK);
    ASSERT_EQ(p.writeUtf8AsUtf16(std::string()), OK);
    Bytes expected = words({2});
    expected.insert(expected.end(), {'a', 0, 'b', 0, 0, 0, 0, 0});
    le32(&expected, 0xffffffff);
    le32(&expected, 3);
    expected.insert(expected.end(), {0xe9, 0x00, 0x34, 0xd8, 0x1e, 0xdd, 0, 0});
    le32(&expected, 0);
    expected.insert(expected.end(), {0, 0, 0, 0});
    EXPECT_EQ(bytesOf(p), expected);

    p.setDataPosition(0);
    EXPECT_EQ(String8(p.readString16()), String8("ab"));
    std::optional<String16> none = String16(u"x");
    EXPECT_EQ(p.readString16(&none), OK);
    EXPECT_FALSE(none.has_value());
    std::string s;
    EXPECT_EQ(p.readUtf8FromUtf16(&s), OK);
    EXPECT_EQ(s, "\xc3\xa9\xf0\x9d\x84\x9e");
    EXPECT_EQ(p.readUtf8FromUtf16(&s), OK);
    EXPECT_EQ(s, "");
    EXPECT_EQ(p.dataAvail(), 0u);

    // libbinder Parcel.cpp writeUtf8AsUtf16: a sequence cut short is BAD_VALUE and
    // nothing is written; StringTest has which sequences convert and to what.
    const size_t size = p.dataSize();
    EXPECT_EQ(p.writeUtf8AsUtf16(std::string("ab\xf0\x9f")), BAD_VALUE);
    EXPECT_EQ(p.dataSize(), size);
}

TEST(ParcelLayoutTest, ByteVectorsArePaddedAndNullIsMinusOne) {
    Parcel p;
    ASSERT_EQ(p.writeByteVector(std::vector<uint8_t>{1, 2, 3}), OK);
    ASSERT_EQ(p.writeByteVector(std::vector<uint8_t>{}), OK);
    ASSERT_EQ(p.writeByteVector(std::optional<std::vector<uint8_t>>()), OK);
    ASSERT_EQ(p.writeByteVector(std::vector<uint8_t>{9, 8, 7, 6}), OK);
    EXPECT_EQ(bytesOf(p), (Bytes{3,    0,    0,    0,    1, 2, 3, 0, 0, 0, 0, 0,
                                 0xff, 0xff, 0xff, 0xff, 4, 0, 0, 0, 9, 8, 7, 6}));
    p.setDataPosition(0);
    std::vector<uint8_t> v;
    EXPECT_EQ(p.readByteVector(&v), OK);
    EXPECT_EQ(v, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(p.readByteVector(&v), OK);
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(p.readByteVector(&v), UNEXPECTED_NULL);
    std::optional<std::vector<uint8_t>> opt;
    EXPECT_EQ(p.readByteVector(&opt), OK);
    EXPECT_EQ(opt, (std::vector<uint8_t>{9, 8, 7, 6}));
}

TEST(ParcelLayoutTest, InterfaceTokenIsAndroid12s) {
    Parcel p;
    ASSERT_EQ(p.writeInterfaceToken(String16(u"a.B")), OK);
    Bytes expected = words({0x80000000u, 0xffffffffu, 0x53595354u, 3});
    expected.insert(expected.end(), {'a', 0, '.', 0, 'B', 0, 0, 0});
    EXPECT_EQ(bytesOf(p), expected);

    // A propagated work source replaces the unset marker.
    IPCThreadState* ts = IPCThreadState::self();
    const int64_t token = ts->setCallingWorkSourceUid(1234);
    Parcel q;
    q.writeInterfaceToken(String16(u"a.B"));
    ts->restoreCallingWorkSource(token);
    q.setDataPosition(4);
    EXPECT_EQ(q.readInt32(), 1234);
}

TEST(ParcelLayoutTest, EnforceInterfaceAcceptsOnlyTheExactToken) {
    const String16 descriptor(u"kora.lumacast.ILumacast");
    auto token = [](uint32_t header, const char16_t* name) {
        Parcel p;
        p.writeInt32(0);
        p.writeInt32(-1);
        p.writeInt32(static_cast<int32_t>(header));
        p.writeString16(String16(name));
        return bytesOf(p);
    };
    auto enforce = [&](const Bytes& b) {
        std::unique_ptr<Parcel> p(parcelOf(b));
        return p->enforceInterface(descriptor);
    };
    EXPECT_TRUE(enforce(token(0x53595354, u"kora.lumacast.ILumacast")));
    EXPECT_FALSE(enforce(token(0x56454e44, u"kora.lumacast.ILumacast")));  // 'VNDR'
    EXPECT_FALSE(enforce(token(0x53595354, u"kora.lumacast.ILumacastCallback")));
    EXPECT_FALSE(enforce(token(0x53595354, u"kora.lumacast.ILumacas")));
    EXPECT_FALSE(enforce(token(0x53595354, u"")));
    Bytes truncated = token(0x53595354, u"kora.lumacast.ILumacast");
    truncated.resize(truncated.size() - 8);
    EXPECT_FALSE(enforce(truncated));
    EXPECT_FALSE(enforce(Bytes()));

    // The caller's strict mode policy is taken over for the call.
    Bytes withPolicy = token(0x53595354, u"kora.lumacast.ILumacast");
    withPolicy[0] = 0x44;
    EXPECT_TRUE(enforce(withPolicy));
    EXPECT_EQ(IPCThreadState::self()->getStrictModePolicy(), 0x44);
    IPCThreadState::self()->setStrictModePolicy(0);
}

TEST(ParcelLayoutTest, StatusIsWrittenAndReadAsLibbinderDoes) {
    Parcel p;
    ASSERT_EQ(Status::ok().writeToParcel(&p), OK);
    ASSERT_EQ(Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(&p), OK);
    ASSERT_EQ(Status::fromServiceSpecificError(42, "m").writeToParcel(&p), OK);
    Bytes expected = words({0, 0xfffffffcu, 0, 0, 0, 0xfffffff8u, 1});
    expected.insert(expected.end(), {'m', 0, 0, 0});
    le32(&expected, 0);
    le32(&expected, 42);
    EXPECT_EQ(bytesOf(p), expected);

    // A failed transaction is reported, never parcelled.
    Parcel q;
    EXPECT_EQ(Status::fromStatusT(DEAD_OBJECT).writeToParcel(&q), DEAD_OBJECT);
    EXPECT_EQ(q.dataSize(), 0u);

    p.setDataPosition(0);
    Status s;
    EXPECT_EQ(s.readFromParcel(p), OK);
    EXPECT_TRUE(s.isOk());
    EXPECT_EQ(s.readFromParcel(p), OK);
    EXPECT_EQ(s.exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(s.readFromParcel(p), OK);
    EXPECT_EQ(s.exceptionCode(), Status::EX_SERVICE_SPECIFIC);
    EXPECT_EQ(s.serviceSpecificErrorCode(), 42);
    EXPECT_EQ(String8(s.exceptionMessage()), String8("m"));
    // The text lumacastctl prints for a failed call.
    EXPECT_STREQ(s.toString8().c_str(), "Status(-8, EX_SERVICE_SPECIFIC): '42: m'");
    EXPECT_EQ(s.readFromParcel(p), NOT_ENOUGH_DATA);
    EXPECT_EQ(s.exceptionCode(), Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ(s.transactionError(), NOT_ENOUGH_DATA);
}

TEST(ParcelLayoutTest, StatusSkipsReplyHeadersAndRefusesBadLengths) {
    // A fat reply header (its size counts itself) is skipped as no exception.
    std::unique_ptr<Parcel> fat(parcelOf(words({0xffffff80u, 12, 77, 88, 5})));
    Status s;
    EXPECT_EQ(s.readFromParcel(*fat), OK);
    EXPECT_TRUE(s.isOk());
    EXPECT_EQ(fat->readInt32(), 5);

    std::unique_ptr<Parcel> longHeader(parcelOf(words({0xffffff80u, 400, 1})));
    EXPECT_EQ(s.readFromParcel(*longHeader), UNKNOWN_ERROR);
    std::unique_ptr<Parcel> longTrace(parcelOf(words({0xfffffffdu, 0, 0, 0x7fffffff})));
    EXPECT_EQ(s.readFromParcel(*longTrace), UNKNOWN_ERROR);
    std::unique_ptr<Parcel> noMessage(parcelOf(words({0xfffffffdu})));
    EXPECT_EQ(s.readFromParcel(*noMessage), UNEXPECTED_NULL);
    EXPECT_FALSE(s.isOk());
}

TEST(ParcelMalformedTest, StringsWithBadLengthsAreRefused) {
    const std::pair<const char*, Bytes> cases[] = {
            {"length beyond the data", words({5, 0x00620061})},
            {"huge length", words({0x7ffffffe, 0x00620061})},
            {"max length", words({0x7fffffff})},
            {"negative length", words({0xfffffff0u, 0, 0})},
            {"missing terminator", words({1, 0x00620061})},
            {"only a length", words({0})},
            {"empty", Bytes()},
    };
    for (const auto& [what, bytes] : cases) {
        std::unique_ptr<Parcel> p(parcelOf(bytes));
        std::string s = "unchanged";
        EXPECT_EQ(p->readUtf8FromUtf16(&s), UNEXPECTED_NULL) << what;
        p->setDataPosition(0);
        String16 s16;
        EXPECT_EQ(p->readString16(&s16), UNEXPECTED_NULL) << what;
    }
}

TEST(ParcelMalformedTest, VectorLengthsAreCheckedBeforeAllocating) {
    for (uint32_t len : {0x7fffffffu, 1000000u, 5u}) {
        std::unique_ptr<Parcel> p(parcelOf(words({len, 0x01020304})));
        std::vector<uint8_t> v{1};
        EXPECT_EQ(p->readByteVector(&v), BAD_VALUE) << len;
        EXPECT_TRUE(v.empty());
        p->setDataPosition(0);
        std::vector<int32_t> ints;
        EXPECT_EQ(p->readInt32Vector(&ints), BAD_VALUE) << len;
    }
    std::unique_ptr<Parcel> negative(parcelOf(words({0xfffffffbu})));
    std::vector<uint8_t> v;
    EXPECT_EQ(negative->readByteVector(&v), UNEXPECTED_NULL);
    std::unique_ptr<Parcel> partial(parcelOf(Bytes{1, 0}));
    bool b = true;
    EXPECT_EQ(partial->readBool(&b), NOT_ENOUGH_DATA);
    EXPECT_FALSE(b);
    // A position set beyond the end reads nothing.
    partial->setDataPosition(std::numeric_limits<size_t>::max());
    EXPECT_EQ(partial->readInplace(4), nullptr);
}

TEST(ParcelBinderTest, BindersLookAsInLibbinderAndForgedOnesAreRefused) {
    Parcel p;
    ASSERT_EQ(p.writeStrongBinder(nullptr), OK);
    Bytes expected = words({0x73622a85u, 0x113, 0, 0, 0, 0, 1});
    EXPECT_EQ(bytesOf(p), expected);
    EXPECT_EQ(p.objectsCount(), 0u);

    sp<BBinder> local = new BBinder();
    ASSERT_EQ(p.writeStrongBinder(local), OK);
    EXPECT_EQ(p.objectsCount(), 1u);
    // Marked as system code when first written.
    EXPECT_EQ(internal::Stability::getLevel(local.get()), internal::Stability::SYSTEM);
    p.setDataPosition(28 + 24);
    EXPECT_EQ(p.readInt32(), 0x0c000001);

    p.setDataPosition(0);
    sp<IBinder> out = local;
    EXPECT_EQ(p.readStrongBinder(&out), UNEXPECTED_NULL);
    EXPECT_EQ(out, nullptr);
    p.setDataPosition(0);
    EXPECT_EQ(p.readNullableStrongBinder(&out), OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(p.readStrongBinder(&out), OK);
    EXPECT_EQ(out.get(), static_cast<IBinder*>(local.get()));

    Parcel real;
    real.writeStrongBinder(local);
    // The same bytes, pointer and all, without the object table behind them.
    std::unique_ptr<Parcel> forged(parcelOf(bytesOf(real)));
    out.clear();
    EXPECT_EQ(forged->readStrongBinder(&out), BAD_TYPE);
    EXPECT_EQ(out, nullptr);
    forged->setDataPosition(0);
    EXPECT_EQ(forged->readFileDescriptor(), BAD_TYPE);

    // Plain data written over an object removes it.
    real.setDataPosition(0);
    real.writeInt32(0);
    EXPECT_EQ(real.objectsCount(), 0u);
    real.setDataPosition(0);
    EXPECT_EQ(real.readStrongBinder(&out), BAD_TYPE);

    // An unknown stability value is refused.
    Parcel badStability;
    badStability.writeStrongBinder(local);
    badStability.setDataPosition(24);
    badStability.writeInt32(0x0b000001);
    badStability.setDataPosition(0);
    EXPECT_EQ(badStability.readStrongBinder(&out), BAD_TYPE);
}

TEST(ParcelFdTest, OwnedDescriptorsAreClosedWithTheParcel) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    const size_t before = openFdCount();
    {
        Parcel p;
        ASSERT_EQ(p.writeDupFileDescriptor(fds[1]), OK);
        ASSERT_EQ(p.writeFileDescriptor(fds[0]), OK);
        EXPECT_EQ(openFdCount(), before + 1);
        p.setDataPosition(0);
        const int dup = p.readFileDescriptor();
        EXPECT_GE(dup, 0);
        EXPECT_NE(dup, fds[1]);
        EXPECT_EQ(p.readFileDescriptor(), fds[0]);
        EXPECT_EQ(write(dup, "x", 1), 1);
    }
    EXPECT_EQ(openFdCount(), before);
    char c;
    EXPECT_EQ(read(fds[0], &c, 1), 1);
    close(fds[0]);
    close(fds[1]);
    Parcel p;
    EXPECT_EQ(p.writeDupFileDescriptor(-1), -EBADF);
    EXPECT_EQ(p.writeFileDescriptor(-1), BAD_VALUE);
}

}  // namespace
