// What libnats allocates, owned.
#pragma once

#include <nats/nats.h>

#include <memory>

namespace tabulo::shipping {

template <auto destroy>
struct NatsDestroyer {
    template <typename T>
    void operator()(T* object) const noexcept {
        destroy(object);
    }
};

using NatsOptionsHandle = std::unique_ptr<natsOptions, NatsDestroyer<natsOptions_Destroy>>;
using ConnectionHandle = std::unique_ptr<natsConnection, NatsDestroyer<natsConnection_Destroy>>;
using SubscriptionHandle = std::unique_ptr<natsSubscription, NatsDestroyer<natsSubscription_Destroy>>;
using MessageHandle = std::unique_ptr<natsMsg, NatsDestroyer<natsMsg_Destroy>>;
using ContextHandle = std::unique_ptr<jsCtx, NatsDestroyer<jsCtx_Destroy>>;
using StreamInfoHandle = std::unique_ptr<jsStreamInfo, NatsDestroyer<jsStreamInfo_Destroy>>;
using MetaDataHandle = std::unique_ptr<jsMsgMetaData, NatsDestroyer<jsMsgMetaData_Destroy>>;

}  // namespace tabulo::shipping
