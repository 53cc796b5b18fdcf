#include "aidl/BnLumacast.h"

#include <binder/Stability.h>

#include "aidl/TransactHelpers.h"

namespace kora {
namespace lumacast {

using ::android::BAD_TYPE;
using ::android::OK;
using ::android::Parcel;
using ::android::sp;
using ::android::status_t;
using transact::readArg;
using transact::writeReply;

BnLumacast::BnLumacast() { ::android::internal::Stability::markCompilationUnit(this); }

status_t BnLumacast::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    status_t ret = OK;
    if (code < TRANSACTION_setCallback || code > TRANSACTION_getZoomMode) {
        return transact::finish(BBinder::onTransact(code, data, reply, flags), reply);
    }
    if (!data.checkInterface(this)) return BAD_TYPE;

    switch (code) {
        case TRANSACTION_setCallback:
        case TRANSACTION_removeCallback: {
            sp<ILumacastCallback> callback;
            bool result = false;
            // Null gives UNEXPECTED_NULL, which the caller sees as a null-pointer exception.
            if ((ret = data.readStrongBinder(&callback)) != OK) break;
            ret = writeReply(reply,
                             code == TRANSACTION_setCallback ? setCallback(callback, &result)
                                                             : removeCallback(callback, &result),
                             result);
            break;
        }
        case TRANSACTION_setZoomSwitch: {
            bool on = false;
            bool result = false;
            if ((ret = readArg(data, &on)) != OK) break;
            ret = writeReply(reply, setZoomSwitch(on, &result), result);
            break;
        }
        case TRANSACTION_getZoomSwitch: {
            bool on = false;
            ret = writeReply(reply, getZoomSwitch(&on), on);
            break;
        }
        case TRANSACTION_getAiAlgoList: {
            int32_t list = 0;
            ret = writeReply(reply, getAiAlgoList(&list), list);
            break;
        }
        case TRANSACTION_setAiSubscribeType: {
            int32_t type = 0;
            bool result = false;
            if ((ret = readArg(data, &type)) != OK) break;
            ret = writeReply(reply, setAiSubscribeType(type, &result), result);
            break;
        }
        case TRANSACTION_getAiSubscribeStatus: {
            int32_t status = 0;
            ret = writeReply(reply, getAiSubscribeStatus(&status), status);
            break;
        }
        case TRANSACTION_setAiProperty: {
            std::string param;
            bool result = false;
            if ((ret = readArg(data, &param)) != OK) break;
            ret = writeReply(reply, setAiProperty(param, &result), result);
            break;
        }
        case TRANSACTION_getAiProperty: {
            std::string param;
            std::string value;
            if ((ret = readArg(data, &param)) != OK) break;
            ret = writeReply(reply, getAiProperty(param, &value), value);
            break;
        }
        case TRANSACTION_setAiSubscribe: {
            int32_t param = 0;
            std::string option;
            bool result = false;
            if ((ret = readArg(data, &param)) != OK || (ret = readArg(data, &option)) != OK) {
                break;
            }
            ret = writeReply(reply, setAiSubscribe(param, option, &result), result);
            break;
        }
        case TRANSACTION_getAiSubscribe: {
            std::string value;
            ret = writeReply(reply, getAiSubscribe(&value), value);
            break;
        }
        case TRANSACTION_grabFrame: {
            int32_t format = 0;
            std::string resolution;
            bool result = false;
            if ((ret = readArg(data, &format)) != OK || (ret = readArg(data, &resolution)) != OK) {
                break;
            }
            ret = writeReply(reply, grabFrame(format, resolution, &result), result);
            break;
        }
        case TRANSACTION_sendDoa: {
            std::string payload;
            bool result = false;
            if ((ret = readArg(data, &payload)) != OK) break;
            ret = writeReply(reply, sendDoa(payload, &result), result);
            break;
        }
        case TRANSACTION_setAutoFraming: {
            int32_t param = 0;
            bool result = false;
            if ((ret = readArg(data, &param)) != OK) break;
            ret = writeReply(reply, setAutoFraming(param, &result), result);
            break;
        }
        case TRANSACTION_getAutoFraming: {
            bool on = false;
            ret = writeReply(reply, getAutoFraming(&on), on);
            break;
        }
        case TRANSACTION_setZoomMode: {
            int32_t param = 0;
            int32_t mode = 0;
            bool result = false;
            if ((ret = readArg(data, &param)) != OK || (ret = readArg(data, &mode)) != OK) break;
            ret = writeReply(reply, setZoomMode(param, mode, &result), result);
            break;
        }
        case TRANSACTION_getZoomMode: {
            std::string value;
            ret = writeReply(reply, getZoomMode(&value), value);
            break;
        }
    }
    return transact::finish(ret, reply);
}

}  // namespace lumacast
}  // namespace kora
