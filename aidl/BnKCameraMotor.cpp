#include "aidl/BnKCameraMotor.h"

#include <binder/Stability.h>

#include "aidl/TransactHelpers.h"

namespace kora {
namespace lumacast {

using ::android::BAD_TYPE;
using ::android::OK;
using ::android::Parcel;
using ::android::status_t;
using transact::readArg;
using transact::writeReply;

BnKCameraMotor::BnKCameraMotor() { ::android::internal::Stability::markCompilationUnit(this); }

status_t BnKCameraMotor::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                    uint32_t flags) {
    status_t ret = OK;
    if (code < TRANSACTION_set_client_type || code > TRANSACTION_mcu_upgrade) {
        return transact::finish(BBinder::onTransact(code, data, reply, flags), reply);
    }
    if (!data.checkInterface(this)) return BAD_TYPE;

    switch (code) {
        case TRANSACTION_set_client_type: {
            std::string type;
            if ((ret = readArg(data, &type)) != OK) break;
            ret = writeReply(reply, set_client_type(type));
            break;
        }
        case TRANSACTION_motor_down: {
            int32_t result = 0;
            ret = writeReply(reply, motor_down(&result), result);
            break;
        }
        case TRANSACTION_motor_up: {
            int32_t result = 0;
            ret = writeReply(reply, motor_up(&result), result);
            break;
        }
        case TRANSACTION_get_motor_status: {
            int32_t status = 0;
            ret = writeReply(reply, get_motor_status(&status), status);
            break;
        }
        case TRANSACTION_get_rise_time: {
            int32_t time = 0;
            ret = writeReply(reply, get_rise_time(&time), time);
            break;
        }
        case TRANSACTION_get_switch_status: {
            bool on = false;
            ret = writeReply(reply, get_switch_status(&on), on);
            break;
        }
        case TRANSACTION_is_support_motor: {
            bool supported = false;
            ret = writeReply(reply, is_support_motor(&supported), supported);
            break;
        }
        case TRANSACTION_set_status: {
            bool status = false;
            if ((ret = readArg(data, &status)) != OK) break;
            ret = writeReply(reply, set_status(status));
            break;
        }
        case TRANSACTION_get_status: {
            bool status = false;
            ret = writeReply(reply, get_status(&status), status);
            break;
        }
        case TRANSACTION_get_mcu_version: {
            std::string version;
            ret = writeReply(reply, get_mcu_version(&version), version);
            break;
        }
        case TRANSACTION_mcu_upgrade: {
            std::string path;
            int32_t result = 0;
            if ((ret = readArg(data, &path)) != OK) break;
            ret = writeReply(reply, mcu_upgrade(path, &result), result);
            break;
        }
    }
    return transact::finish(ret, reply);
}

}  // namespace lumacast
}  // namespace kora
