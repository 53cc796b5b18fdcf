// Objects of this process: libbinder's standard transactions and the service registry.
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

using namespace android;

namespace {

class DumpRecorder : public BBinder {
  public:
    const String16& getInterfaceDescriptor() const override {
        static const String16 d(u"lumacast.test.IDumpRecorder");
        return d;
    }
    status_t dump(int fd, const Vector<String16>&) override {
        mFd = fd;
        return 17;
    }
    int mFd = -2;
};

TEST(LocalBinderTest, StandardTransactionsAreAnsweredByBBinder) {
    sp<DumpRecorder> b = new DumpRecorder();
    Parcel data;
    Parcel reply;
    EXPECT_EQ(b->transact(IBinder::PING_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(b->transact(IBinder::INTERFACE_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(String8(reply.readString16()), String8("lumacast.test.IDumpRecorder"));
    Parcel r2;
    EXPECT_EQ(b->transact(IBinder::FIRST_CALL_TRANSACTION, data, &r2), UNKNOWN_TRANSACTION);
    EXPECT_EQ(b->transact(0, data, &r2), UNKNOWN_TRANSACTION);
    EXPECT_EQ(r2.dataSize(), 0u);
    EXPECT_EQ(b->linkToDeath(nullptr), INVALID_OPERATION);
    EXPECT_TRUE(b->isBinderAlive());

    // libbinder Binder.cpp BBinder::transact: extension and pid come from BBinder itself.
    Parcel ext;
    EXPECT_EQ(b->transact(IBinder::EXTENSION_TRANSACTION, data, &ext), OK);
    EXPECT_EQ(ext.readStrongBinder(), nullptr);
    sp<BBinder> extension = new BBinder();
    b->setExtension(extension);
    Parcel ext2;
    EXPECT_EQ(b->transact(IBinder::EXTENSION_TRANSACTION, data, &ext2), OK);
    EXPECT_EQ(ext2.readStrongBinder().get(), static_cast<IBinder*>(extension.get()));
    Parcel pid;
    EXPECT_EQ(b->transact(IBinder::DEBUG_PID_TRANSACTION, data, &pid), OK);
    EXPECT_EQ(pid.readInt32(), getpid());
    EXPECT_EQ(b->transact(IBinder::SET_RPC_CLIENT_TRANSACTION, data, &r2), INVALID_OPERATION);
    // BBinder::onTransact: property changes are acknowledged.
    EXPECT_EQ(b->transact(IBinder::SYSPROPS_TRANSACTION, data, &r2), OK);
    EXPECT_EQ(r2.dataSize(), 0u);

    // DUMP's result is dump()'s; a request without a descriptor hands it an invalid one.
    // RemoteBinderTest passes the descriptor and the arguments.
    Parcel noFd;
    noFd.writeInt32(0);
    EXPECT_EQ(b->transact(IBinder::DUMP_TRANSACTION, noFd, &r2), 17);
    EXPECT_LT(b->mFd, 0);
}

// What a result receiver of a shell command is sent.
class ResultRecorder : public BBinder {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel*, uint32_t flags) override {
        mCode = code;
        mFlags = flags;
        mTokenOk = data.enforceInterface(String16(u"com.android.internal.os.IResultReceiver"));
        mResult = data.readInt32();
        return OK;
    }
    uint32_t mCode = 0;
    uint32_t mFlags = 0;
    bool mTokenOk = false;
    int32_t mResult = 0;
};

// libbinder Binder.cpp BBinder::onTransact, SHELL_COMMAND_TRANSACTION: the call succeeds
// and the result receiver gets INVALID_OPERATION in a one-way IResultReceiver.send.
TEST(LocalBinderTest, ShellCommandTellsTheReceiverItIsUnsupported) {
    sp<DumpRecorder> b = new DumpRecorder();
    sp<ResultRecorder> receiver = new ResultRecorder();
    Parcel data;
    Parcel reply;
    for (int i = 0; i < 3; i++) data.writeFileDescriptor(STDERR_FILENO);
    data.writeInt32(1);
    data.writeString16(String16(u"help"));
    data.writeStrongBinder(nullptr);
    data.writeStrongBinder(sp<IBinder>(receiver));
    EXPECT_EQ(b->transact(IBinder::SHELL_COMMAND_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(receiver->mCode, static_cast<uint32_t>(IBinder::FIRST_CALL_TRANSACTION));
    EXPECT_EQ(receiver->mFlags, static_cast<uint32_t>(IBinder::FLAG_ONEWAY));
    EXPECT_TRUE(receiver->mTokenOk);
    EXPECT_EQ(receiver->mResult, INVALID_OPERATION);
    EXPECT_EQ(reply.dataSize(), 0u);
}

TEST(ServiceManagerTest, NamesAreCheckedAndListingFiltersByDumpPriority) {
    sp<IServiceManager> sm = defaultServiceManager();
    sp<BBinder> b = new BBinder();
    EXPECT_EQ(sm->addService(String16(""), b), BAD_VALUE);
    EXPECT_EQ(sm->addService(String16("has space"), b), BAD_VALUE);
    EXPECT_EQ(sm->addService(String16("bad\xc3\xa9"), b), BAD_VALUE);
    EXPECT_EQ(sm->addService(String16(std::string(128, 'a').c_str()), b), BAD_VALUE);
    EXPECT_EQ(sm->addService(String16("nothing"), nullptr), UNEXPECTED_NULL);

    const String16 slashed("vendor.test.IFoo/default");
    ASSERT_EQ(sm->addService(slashed, b, false, IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL), OK);
    EXPECT_EQ(sm->checkService(slashed).get(), static_cast<IBinder*>(b.get()));
    EXPECT_EQ(sm->getService(slashed).get(), static_cast<IBinder*>(b.get()));
    EXPECT_EQ(sm->checkService(String16("never.added")), nullptr);

    const String16 byDefault("prio.default");
    ASSERT_EQ(sm->addService(byDefault, new BBinder(), false,
                             IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT),
              OK);
    auto has = [&](int flags, const String16& name) {
        for (const String16& s : sm->listServices(flags)) {
            if (s == name) return true;
        }
        return false;
    };
    EXPECT_TRUE(has(IServiceManager::DUMP_FLAG_PRIORITY_ALL, slashed));
    EXPECT_TRUE(has(IServiceManager::DUMP_FLAG_PRIORITY_ALL, byDefault));
    EXPECT_TRUE(has(IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL, slashed));
    EXPECT_FALSE(has(IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL, byDefault));
    EXPECT_FALSE(has(IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT, slashed));
}

}  // namespace
