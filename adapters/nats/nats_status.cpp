#include "adapters/nats/nats_status.h"

#include <cstring>
#include <new>

#include "adapters/nats/log_stream.h"

namespace tabulo::shipping {

void check(natsStatus status, const std::string& doing) {
    if (status == NATS_OK) {
        return;
    }
    // The library's own words are those of this thread's last failure, which need not be this one.
    natsStatus last = NATS_OK;
    const char* words = nats_GetLastError(&last);
    const bool areOfThis = last == status && words != nullptr && *words != '\0';
    const std::string text = doing + ": " + (areOfThis ? words : natsStatus_GetText(status));
    switch (status) {
        case NATS_NO_MEMORY:
            throw std::bad_alloc();
        case NATS_CONNECTION_AUTH_FAILED:
        case NATS_NOT_PERMITTED:
        case NATS_SSL_ERROR:
        case NATS_SECURE_CONNECTION_REQUIRED:
        case NATS_SECURE_CONNECTION_WANTED:
        case NATS_INVALID_ARG:
        case NATS_INVALID_SUBJECT:
        case NATS_ADDRESS_MISSING:
        case NATS_MAX_PAYLOAD:
            throw Refused(text);
        default:
            throw Unreachable(text);
    }
}

}  // namespace tabulo::shipping
