#include "adapters/nats/receiver.h"
namespace tabulo::shipping {
struct Receiver::State {};
Receiver::Receiver(LogStream&, ReceiveOptions, Words) {}
Receiver::~Receiver() = default;
void Receiver::run() {}
}
