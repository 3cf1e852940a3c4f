#include "adapters/nats/nats_message.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "adapters/nats/nats_status.h"

namespace tabulo::shipping {

MessageHandle messageOf(const Envelope& envelope, const std::string& reply) {
    natsMsg* made = nullptr;
    check(natsMsg_Create(&made, envelope.subject.c_str(), reply.empty() ? nullptr : reply.c_str(),
                         reinterpret_cast<const char*>(envelope.payload.data()),
                         static_cast<int>(envelope.payload.size())),
          "making a message");
    MessageHandle message(made);
    for (const Header& header : envelope.headers) {
        check(natsMsgHeader_Set(made, header.name, header.value.c_str()), "making a message's header");
    }
    return message;
}

Stored storedOf(natsMsg* message, std::string subject, std::uint64_t sequence) {
    Stored stored{.sequence = sequence, .subject = std::move(subject), .headers = {}, .payload = {}};
    const char** keys = nullptr;
    int count = 0;
    if (natsMsgHeader_Keys(message, &keys, &count) == NATS_OK) {
        for (int i = 0; i < count; ++i) {
            const char* value = nullptr;
            if (std::strncmp(keys[i], "Tabulo-", 7) == 0 && natsMsgHeader_Get(message, keys[i], &value) == NATS_OK) {
                stored.headers.emplace_back(keys[i], value);
            }
        }
        std::free(keys);
    }
    const auto* data = reinterpret_cast<const std::byte*>(natsMsg_GetData(message));
    stored.payload.assign(data, data + natsMsg_GetDataLength(message));
    return stored;
}

}  // namespace tabulo::shipping
