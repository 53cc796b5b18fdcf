#define LOG_TAG "HostBinder"

#include "Session.h"

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <errno.h>
#include <log/log.h>
#include <pthread.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "FlatObject.h"
#include "ParcelAccess.h"
#include "Runtime.h"

namespace android {
namespace hostbinder {

namespace {

bool validToken(const std::string& token) {
    if (token.empty() || token.size() > kMaxTokenSize) return false;
    return std::all_of(token.begin(), token.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '-' || c == '_';
    });
}

template <typename T>
T loadBody(const Incoming& m) {
    T t;
    memcpy(&t, m.body.data(), sizeof(T));
    return t;
}

}  // namespace

Session::Session(UniqueFd fd) : mFd(fd.release()), mGeneration(Runtime::generation()) {
    Runtime::trackFd(mFd);
    struct ucred cred {};
    socklen_t len = sizeof(cred);
    if (getsockopt(mFd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0) {
        mPeerPid = cred.pid;
        mPeerUid = cred.uid;
    }
}

Session::~Session() {
    // The reader closed the socket before letting go; a forked child's copy was closed
    // by the fork handler and its number may be in use again.
}

sp<Session> Session::start(UniqueFd fd, const std::string& expectedPeerToken) {
    sp<Session> session = new Session(std::move(fd));
    session->mExpectedPeerToken = expectedPeerToken;

    const std::string& token = Runtime::get().token();
    std::vector<uint8_t> hello(sizeof(HelloBody) + token.size());
    const HelloBody body{kProtocolVersion, static_cast<uint32_t>(token.size())};
    memcpy(hello.data(), &body, sizeof(body));
    memcpy(hello.data() + sizeof(body), token.data(), token.size());
    // A failed greeting shows up as the end of the session in the reader.
    session->sendMessage(CMD_HELLO, hello.data(), hello.size(), nullptr);

    std::thread([session] {
        pthread_setname_np(pthread_self(), "binderSession");
        session->readerLoop();
    }).detach();
    return session;
}

std::string Session::peerToken() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mPeerToken;
}

// ---- sending ----

status_t Session::sendMessage(uint32_t command, const void* head, size_t headSize,
                              const Outgoing* payload) {
    MessageHeader header{command, static_cast<uint32_t>(headSize), 0, 0};
    iovec iov[4];
    size_t iovCount = 0;
    iov[iovCount++] = {&header, sizeof(header)};
    iov[iovCount++] = {const_cast<void*>(head), headSize};
    if (payload != nullptr) {
        header.bodySize += static_cast<uint32_t>(payload->data.size() +
                                                 payload->offsets.size() * sizeof(uint32_t));
        header.fdCount = static_cast<uint32_t>(payload->fds.size());
        if (!payload->data.empty()) {
            iov[iovCount++] = {const_cast<uint8_t*>(payload->data.data()), payload->data.size()};
        }
        if (!payload->offsets.empty()) {
            iov[iovCount++] = {const_cast<uint32_t*>(payload->offsets.data()),
                               payload->offsets.size() * sizeof(uint32_t)};
        }
    }

    std::vector<char> control;
    msghdr msg{};
    msg.msg_iov = iov;
    msg.msg_iovlen = iovCount;
    if (header.fdCount > 0) {
        const size_t fdBytes = payload->fds.size() * sizeof(int);
        control.assign(CMSG_SPACE(fdBytes), 0);
        msg.msg_control = control.data();
        msg.msg_controllen = control.size();
        cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
        cmsg->cmsg_level = SOL_SOCKET;
        cmsg->cmsg_type = SCM_RIGHTS;
        cmsg->cmsg_len = CMSG_LEN(fdBytes);
        memcpy(CMSG_DATA(cmsg), payload->fds.data(), fdBytes);
    }

    std::lock_guard<std::mutex> lock(mWriteLock);
    if (mFd < 0) return DEAD_OBJECT;
    iovec* cur = iov;
    size_t curCount = iovCount;
    while (curCount > 0) {
        msg.msg_iov = cur;
        msg.msg_iovlen = curCount;
        const ssize_t n = sendmsg(mFd, &msg, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            ALOGE("sendmsg to peer %d failed: %s", mPeerPid, strerror(errno));
            // The reader sees the end and tears the session down.
            shutdown(mFd, SHUT_RDWR);
            return DEAD_OBJECT;
        }
        // Descriptors went with the first bytes.
        msg.msg_control = nullptr;
        msg.msg_controllen = 0;
        size_t sent = static_cast<size_t>(n);
        while (curCount > 0 && sent >= cur->iov_len) {
            sent -= cur->iov_len;
            ++cur;
            --curCount;
        }
        if (curCount > 0) {
            cur->iov_base = static_cast<uint8_t*>(cur->iov_base) + sent;
            cur->iov_len -= sent;
        }
    }
    return OK;
}

status_t Session::flattenForSend(const Parcel& parcel, Outgoing* out) {
    const size_t size = parcel.dataSize();
    if (size > kMaxTransactionData) {
        ALOGE("Parcel of %zu bytes is larger than a binder transaction may be", size);
        return FAILED_TRANSACTION;
    }
    const size_t count = ParcelAccess::objectCount(parcel);
    size_t fdCount = 0;
    for (size_t i = 0; i < count; ++i) {
        const ParcelAccess::ObjectView o = ParcelAccess::object(parcel, i);
        if (o.offset + sizeof(FlatObject) > size) return BAD_VALUE;
        if (o.isFd) {
            ++fdCount;
        } else if (o.binder->localBinder() == nullptr) {
            BpBinder* proxy = o.binder->remoteBinder();
            if (proxy == nullptr || proxy->mSession.get() != this) {
                // Every session has its own addresses; a third process cannot be reached.
                ALOGE("A binder of another process cannot be passed on to peer %d", mPeerPid);
                return INVALID_OPERATION;
            }
        }
    }
    if (fdCount > kMaxFds) return FAILED_TRANSACTION;

    out->data.assign(parcel.data(), parcel.data() + size);
    out->offsets.clear();
    out->fds.clear();
    std::lock_guard<std::mutex> lock(mLock);
    if (!isAlive()) return DEAD_OBJECT;
    for (size_t i = 0; i < count; ++i) {
        const ParcelAccess::ObjectView o = ParcelAccess::object(parcel, i);
        FlatObject flat{};
        if (o.isFd) {
            flat = {BINDER_TYPE_FD, kFdObjectFlags, out->fds.size(), 0};
            out->fds.push_back(o.fd);
        } else if (BBinder* local = o.binder->localBinder()) {
            IBinder* key = local;
            uint64_t address;
            auto it = mExportAddress.find(key);
            if (it == mExportAddress.end()) {
                address = mNextAddress++;
                mExportAddress.emplace(key, address);
                mExports.emplace(address, Export{sp<IBinder>(key), 0});
            } else {
                address = it->second;
            }
            mExports[address].timesSent++;
            flat = {BINDER_TYPE_BINDER, kBinderObjectFlags, address, 0};
        } else {
            flat = {BINDER_TYPE_HANDLE, kBinderObjectFlags, o.binder->remoteBinder()->mAddress, 0};
        }
        storeFlat(out->data.data() + o.offset, flat);
        out->offsets.push_back(static_cast<uint32_t>(o.offset));
    }
    return OK;
}

status_t Session::unflattenReceived(const uint8_t* data, size_t dataSize, const uint8_t* offsets,
                                    size_t objectCount, std::vector<UniqueFd>* fds, Parcel* out) {
    status_t err = out->setData(data, dataSize);
    if (err != OK) return err;

    std::vector<size_t> offs(objectCount);
    std::vector<FlatObject> flats(objectCount);
    std::vector<bool> fdUsed(fds->size(), false);
    bool valid = true;
    size_t nextFree = 0;
    std::unique_lock<std::mutex> lock(mLock);
    for (size_t i = 0; i < objectCount; ++i) {
        uint32_t off;
        memcpy(&off, offsets + i * sizeof(uint32_t), sizeof(off));
        offs[i] = off;
        if (off % 4 != 0 || off < nextFree || off > dataSize ||
            dataSize - off < sizeof(FlatObject)) {
            ALOGE("Peer %d sent a parcel with a bad object offset %u", mPeerPid, off);
            valid = false;
            break;
        }
        nextFree = off + sizeof(FlatObject);
        flats[i] = loadFlat(data + off);
        const FlatObject& f = flats[i];
        if (f.type == BINDER_TYPE_BINDER) {
            if (f.binder == 0) valid = false;
        } else if (f.type == BINDER_TYPE_HANDLE) {
            if (mExports.count(f.binder) == 0) {
                ALOGE("Peer %d named an object %llu that it was never given", mPeerPid,
                      static_cast<unsigned long long>(f.binder));
                valid = false;
            }
        } else if (f.type == BINDER_TYPE_FD) {
            if (f.binder >= fds->size() || fdUsed[f.binder]) {
                valid = false;
            } else {
                fdUsed[f.binder] = true;
            }
        } else {
            valid = false;
        }
        if (!valid) break;
    }
    if (valid && std::find(fdUsed.begin(), fdUsed.end(), false) != fdUsed.end()) valid = false;

    if (!valid) {
        // The peer counted every reference it sent; hand back the ones we could read, so
        // a refused parcel leaks nothing on its side.
        std::map<uint64_t, uint32_t> returned;
        for (size_t i = 0; i < objectCount; ++i) {
            uint32_t off;
            memcpy(&off, offsets + i * sizeof(uint32_t), sizeof(off));
            if (off % 4 != 0 || off > dataSize || dataSize - off < sizeof(FlatObject)) continue;
            const FlatObject f = loadFlat(data + off);
            if (f.type == BINDER_TYPE_BINDER && f.binder != 0) returned[f.binder]++;
        }
        lock.unlock();
        for (const auto& [address, count] : returned) {
            const ReleaseBody body{address, count, 0};
            sendMessage(CMD_RELEASE, &body, sizeof(body), nullptr);
        }
        out->freeData();
        return BAD_VALUE;
    }

    uint8_t* const bytes = ParcelAccess::mutableData(out);
    for (size_t i = 0; i < objectCount; ++i) {
        const FlatObject& f = flats[i];
        if (f.type == BINDER_TYPE_BINDER) {
            sp<BpBinder> proxy;
            auto it = mProxies.find(f.binder);
            if (it != mProxies.end()) proxy = it->second.promote();
            if (proxy == nullptr) {
                // A proxy on its way out keeps its own count and returns it itself.
                proxy = new BpBinder(sp<Session>(this), f.binder);
                mProxies[f.binder] = proxy;
            }
            proxy->mTimesRecd++;
            ParcelAccess::addBinder(out, offs[i], proxy);
            storeFlat(bytes + offs[i], {BINDER_TYPE_HANDLE, f.flags, f.binder, 0});
        } else if (f.type == BINDER_TYPE_HANDLE) {
            const sp<IBinder>& local = mExports[f.binder].binder;
            ParcelAccess::addBinder(out, offs[i], local);
            storeFlat(bytes + offs[i], {BINDER_TYPE_BINDER, f.flags,
                                        reinterpret_cast<uintptr_t>(local->getWeakRefs()),
                                        reinterpret_cast<uintptr_t>(local.get())});
        } else {
            const int fd = (*fds)[f.binder].release();
            ParcelAccess::addOwnedFd(out, offs[i], fd);
            storeFlat(bytes + offs[i], {BINDER_TYPE_FD, f.flags, static_cast<uint32_t>(fd), 1});
        }
    }
    return OK;
}

// ---- calls out ----

status_t Session::transact(uint64_t target, uint32_t code, const Parcel& data, Parcel* reply,
                           uint32_t flags) {
    if (mGeneration != Runtime::generation() || !isAlive()) return DEAD_OBJECT;
    Outgoing out;
    status_t err = flattenForSend(data, &out);
    if (err != OK) return err;

    const bool oneway = (flags & IBinder::FLAG_ONEWAY) != 0;
    TransactBody body{0,
                      0,
                      target,
                      code,
                      flags,
                      static_cast<uint32_t>(out.data.size()),
                      static_cast<uint32_t>(out.offsets.size())};
    if (!oneway) {
        IPCThreadState* const ts = IPCThreadState::self();
        if (!ts->mServing.empty() && ts->mServing.back().session == this) {
            body.nestedIn = ts->mServing.back().callId;
        }
    }
    PendingCall call;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (!isAlive()) return DEAD_OBJECT;
        body.callId = mNextCallId++;
        if (!oneway) mPending[body.callId] = &call;
    }
    err = sendMessage(CMD_TRANSACT, &body, sizeof(body), &out);
    if (err != OK || oneway) {
        std::lock_guard<std::mutex> lock(mLock);
        mPending.erase(body.callId);
        return err;
    }
    return waitForReply(body.callId, &call, reply);
}

status_t Session::waitForReply(uint64_t callId, PendingCall* call, Parcel* reply) {
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        call->cv.wait(lock, [&] { return !call->inbox.empty() || !isAlive(); });
        if (call->inbox.empty()) {
            mPending.erase(callId);
            return DEAD_OBJECT;
        }
        Incoming message = std::move(call->inbox.front());
        call->inbox.pop_front();
        if (message.header.command == CMD_REPLY) {
            mPending.erase(callId);
            lock.unlock();
            return parseReply(std::move(message), reply);
        }
        // The peer calls back while serving us: run it here, as binder would.
        lock.unlock();
        if (isAlive()) execute(std::move(message));
        lock.lock();
    }
}

status_t Session::parseReply(Incoming&& message, Parcel* reply) {
    const ReplyBody body = loadBody<ReplyBody>(message);
    if (body.status != OK) return body.status;
    if (message.error != OK) return message.error;
    if (reply != nullptr) ParcelAccess::moveInto(reply, message.parcel.get());
    return OK;
}

status_t Session::getService(const String16& name, sp<IBinder>* out) {
    Parcel data;
    Parcel reply;
    status_t err = data.writeString16(name);
    if (err != OK) return err;
    err = transact(0, kGetServiceTransaction, data, &reply, 0);
    if (err != OK) return err;
    return reply.readNullableStrongBinder(out);
}

// ---- calls in ----

void Session::execute(Incoming&& message) {
    const TransactBody body = loadBody<TransactBody>(message);
    const bool oneway = (body.flags & IBinder::FLAG_ONEWAY) != 0;
    Parcel reply;
    status_t err = message.error;
    if (err == OK) {
        IPCThreadState* const ts = IPCThreadState::self();
        // What the handler may change (enforceInterface sets the policy and work source)
        // is put back afterwards, as IPCThreadState::executeCommand does.
        const pid_t savedPid = ts->mCallingPid;
        const uid_t savedUid = ts->mCallingUid;
        const int32_t savedFlags = ts->mLastTransactionBinderFlags;
        const int32_t savedPolicy = ts->mStrictModePolicy;
        const int32_t savedWorkSource = ts->mWorkSource;
        const bool savedPropagate = ts->mPropagateWorkSource;
        ts->clearCallingWorkSource();
        ts->clearPropagateWorkSource();
        ts->mCallingPid = mPeerPid;
        ts->mCallingUid = mPeerUid;
        ts->mLastTransactionBinderFlags = static_cast<int32_t>(body.flags);
        ts->mServing.push_back({this, body.callId});
        err = message.target->transact(body.code, *message.parcel, &reply, body.flags);
        ts->mServing.pop_back();
        ts->mCallingPid = savedPid;
        ts->mCallingUid = savedUid;
        ts->mLastTransactionBinderFlags = savedFlags;
        ts->mStrictModePolicy = savedPolicy;
        ts->mWorkSource = savedWorkSource;
        ts->mPropagateWorkSource = savedPropagate;
        // A positive result is not an error: libbinder sends the reply as written.
        if (err > 0) err = OK;
    }
    if (!oneway) sendReply(body.callId, err, &reply);
}

void Session::receive(Incoming* message, size_t headSize, uint64_t target, uint32_t dataSize,
                      uint32_t objectCount) {
    const uint8_t* const data = message->body.data() + headSize;
    const uint8_t* const offsets = data + dataSize;
    message->parcel = std::make_unique<Parcel>();
    if (target != 0) {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mExports.find(target);
        if (it != mExports.end()) message->target = it->second.binder;
    }
    message->error = unflattenReceived(data, dataSize, offsets, objectCount, &message->fds,
                                       message->parcel.get());
    if (message->error == OK && target != 0 && message->target == nullptr) {
        ALOGE("Peer %d called an unknown object %llu", mPeerPid,
              static_cast<unsigned long long>(target));
        // Its references still go back to it as the parcel goes.
        message->parcel->freeData();
        message->error = BAD_VALUE;
    }
    // Only the fixed part is needed from here on.
    message->body.resize(headSize);
    message->fds.clear();
}

status_t Session::sendReply(uint64_t callId, status_t status, const Parcel* reply) {
    Outgoing out;
    if (status == OK && reply != nullptr) {
        const status_t err = flattenForSend(*reply, &out);
        if (err != OK) {
            status = err;
            out = Outgoing();
        }
    }
    ReplyBody body{callId, status, 0, 0, 0};
    if (status == OK) {
        body.dataSize = static_cast<uint32_t>(out.data.size());
        body.objectCount = static_cast<uint32_t>(out.offsets.size());
    }
    return sendMessage(CMD_REPLY, &body, sizeof(body), status == OK ? &out : nullptr);
}

void Session::drainAsync() {
    for (;;) {
        Incoming message;
        {
            std::lock_guard<std::mutex> lock(mLock);
            if (mAsyncQueue.empty()) {
                mAsyncRunning = false;
                return;
            }
            message = std::move(mAsyncQueue.front());
            mAsyncQueue.pop_front();
        }
        execute(std::move(message));
    }
}

void Session::onProxyDestroyed(BpBinder* proxy, uint64_t address, uint32_t /*count*/) {
    // A forked child must not touch its parent's locks or socket.
    if (mGeneration != Runtime::generation()) return;
    uint32_t count;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mProxies.find(address);
        if (it != mProxies.end() && it->second.unsafe_get() == proxy) mProxies.erase(it);
        count = proxy->mTimesRecd;
        if (!isAlive() || count == 0) return;
    }
    const ReleaseBody body{address, count, 0};
    sendMessage(CMD_RELEASE, &body, sizeof(body), nullptr);
}

// ---- the reader ----

bool Session::recvExact(void* buf, size_t len, std::vector<UniqueFd>* fds) {
    uint8_t* p = static_cast<uint8_t*>(buf);
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxFds * sizeof(int))];
    while (len > 0) {
        iovec iov{p, len};
        msghdr msg{};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        const ssize_t n = recvmsg(mFd, &msg, MSG_CMSG_CLOEXEC);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bool ok = true;
        for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
            if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
            const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (size_t i = 0; i < count; ++i) {
                int fd;
                memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
                fds->emplace_back(fd);
            }
        }
        if ((msg.msg_flags & MSG_CTRUNC) != 0 || fds->size() > kMaxFds) ok = false;
        if (!ok) return false;
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

bool Session::readMessage(Incoming* message) {
    if (!recvExact(&message->header, sizeof(message->header), &message->fds)) return false;
    const MessageHeader& h = message->header;
    if (h.command < CMD_HELLO || h.command > CMD_RELEASE || h.bodySize > kMaxBody ||
        h.fdCount > kMaxFds || h.reserved != 0) {
        ALOGE("Peer %d sent a bad message header (command %u, %u bytes, %u fds)", mPeerPid,
              h.command, h.bodySize, h.fdCount);
        return false;
    }
    message->body.resize(h.bodySize);
    if (h.bodySize > 0 && !recvExact(message->body.data(), h.bodySize, &message->fds)) {
        return false;
    }
    if (message->fds.size() != h.fdCount) {
        ALOGE("Peer %d sent %zu descriptors, announced %u", mPeerPid, message->fds.size(),
              h.fdCount);
        return false;
    }
    return true;
}

void Session::readerLoop() {
    for (;;) {
        Incoming message;
        if (!readMessage(&message) || !handleMessage(std::move(message))) break;
    }
    teardown();
}

bool Session::handleMessage(Incoming&& message) {
    const MessageHeader& h = message.header;
    bool helloSeen;
    {
        std::lock_guard<std::mutex> lock(mLock);
        helloSeen = mHelloSeen;
    }
    if (!helloSeen) {
        if (h.command != CMD_HELLO || h.bodySize < sizeof(HelloBody) || h.fdCount != 0) {
            return false;
        }
        const HelloBody hello = loadBody<HelloBody>(message);
        if (hello.version != kProtocolVersion || hello.tokenSize > kMaxTokenSize ||
            h.bodySize != sizeof(HelloBody) + hello.tokenSize) {
            ALOGE("Peer %d speaks another protocol", mPeerPid);
            return false;
        }
        const std::string token(
                reinterpret_cast<const char*>(message.body.data() + sizeof(HelloBody)),
                hello.tokenSize);
        if (!validToken(token) || (!mExpectedPeerToken.empty() && token != mExpectedPeerToken)) {
            ALOGE("Peer %d introduced itself as an unexpected process", mPeerPid);
            return false;
        }
        {
            std::lock_guard<std::mutex> lock(mLock);
            mPeerToken = token;
            mHelloSeen = true;
        }
        Runtime::get().registerSession(token, this);
        return true;
    }

    switch (h.command) {
        case CMD_TRANSACT: {
            if (h.bodySize < sizeof(TransactBody)) return false;
            const TransactBody body = loadBody<TransactBody>(message);
            if (body.dataSize > kMaxTransactionData || body.objectCount > kMaxObjects ||
                h.bodySize != sizeof(TransactBody) + body.dataSize +
                                      body.objectCount * sizeof(uint32_t)) {
                ALOGE("Peer %d sent a transaction whose sizes do not add up", mPeerPid);
                return false;
            }
            receive(&message, sizeof(TransactBody), body.target, body.dataSize, body.objectCount);
            if (body.target == 0) {
                handleDirectoryCall(std::move(message));
                return true;
            }
            if ((body.flags & IBinder::FLAG_ONEWAY) != 0) {
                std::lock_guard<std::mutex> lock(mLock);
                mAsyncQueue.push_back(std::move(message));
                if (mAsyncRunning) return true;
                mAsyncRunning = true;
                Runtime::get().pool().enqueue({sp<Session>(this), Incoming(), true, nullptr});
                return true;
            }
            if (body.nestedIn != 0) {
                std::lock_guard<std::mutex> lock(mLock);
                auto it = mPending.find(body.nestedIn);
                if (it != mPending.end()) {
                    it->second->inbox.push_back(std::move(message));
                    it->second->cv.notify_all();
                    return true;
                }
            }
            Runtime::get().pool().enqueue({sp<Session>(this), std::move(message), false, nullptr});
            return true;
        }
        case CMD_REPLY: {
            if (h.bodySize < sizeof(ReplyBody)) return false;
            const ReplyBody body = loadBody<ReplyBody>(message);
            if (body.dataSize > kMaxTransactionData || body.objectCount > kMaxObjects ||
                h.bodySize !=
                        sizeof(ReplyBody) + body.dataSize + body.objectCount * sizeof(uint32_t) ||
                (body.status != OK && h.bodySize != sizeof(ReplyBody))) {
                ALOGE("Peer %d sent a reply whose sizes do not add up", mPeerPid);
                return false;
            }
            {
                std::lock_guard<std::mutex> lock(mLock);
                if (mPending.count(body.callId) == 0) {
                    ALOGE("Peer %d answered a call nobody made", mPeerPid);
                    return false;
                }
            }
            receive(&message, sizeof(ReplyBody), 0, body.dataSize, body.objectCount);
            std::lock_guard<std::mutex> lock(mLock);
            auto it = mPending.find(body.callId);
            it->second->inbox.push_back(std::move(message));
            it->second->cv.notify_all();
            return true;
        }
        case CMD_RELEASE:
            if (h.bodySize != sizeof(ReleaseBody) || h.fdCount != 0) return false;
            handleRelease(message);
            return true;
        default:
            return false;
    }
}

void Session::handleRelease(const Incoming& message) {
    const ReleaseBody body = loadBody<ReleaseBody>(message);
    sp<IBinder> dropped;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mExports.find(body.address);
        if (it == mExports.end()) {
            ALOGE("Peer %d released an object %llu it does not hold", mPeerPid,
                  static_cast<unsigned long long>(body.address));
            return;
        }
        Export& e = it->second;
        if (body.count > e.timesSent) {
            ALOGE("Peer %d released %u references to object %llu but holds %llu", mPeerPid,
                  body.count, static_cast<unsigned long long>(body.address),
                  static_cast<unsigned long long>(e.timesSent));
        }
        e.timesSent -= std::min<uint64_t>(body.count, e.timesSent);
        if (e.timesSent == 0) {
            dropped = std::move(e.binder);
            mExportAddress.erase(dropped.get());
            mExports.erase(it);
        }
    }
    // The object may die here, outside the lock.
}

void Session::handleDirectoryCall(Incoming&& message) {
    const TransactBody body = loadBody<TransactBody>(message);
    const bool oneway = (body.flags & IBinder::FLAG_ONEWAY) != 0;
    Parcel reply;
    status_t err = message.error;
    if (err == OK && body.code != kGetServiceTransaction) err = UNKNOWN_TRANSACTION;
    if (err == OK) {
        String16 name;
        err = message.parcel->readString16(&name);
        if (err == OK) err = reply.writeStrongBinder(Runtime::get().localService(name));
    }
    if (!oneway) sendReply(body.callId, err, &reply);
}

void Session::teardown() {
    std::map<uint64_t, Export> exports;
    std::vector<sp<BpBinder>> proxies;
    std::string token;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mAlive.store(false, std::memory_order_release);
        exports.swap(mExports);
        mExportAddress.clear();
        for (auto& entry : mProxies) {
            sp<BpBinder> proxy = entry.second.promote();
            if (proxy != nullptr) proxies.push_back(proxy);
        }
        for (auto& entry : mPending) entry.second->cv.notify_all();
        token = mPeerToken;
    }
    if (!token.empty()) Runtime::get().unregisterSession(token, this);
    {
        std::lock_guard<std::mutex> lock(mWriteLock);
        Runtime::untrackFd(mFd);
        close(mFd);
        mFd = -1;
    }
    ALOGI("Session with peer %d ended; released %zu objects it held", mPeerPid, exports.size());
    exports.clear();
    // Obituaries are delivered on the pool, as the driver's BR_DEAD_BINDER is.
    for (const sp<BpBinder>& proxy : proxies) {
        Runtime::get().pool().enqueue({sp<Session>(this), Incoming(), false, proxy});
    }
}

}  // namespace hostbinder
}  // namespace android
