#include "query/pseudo_field.h"

namespace tabulo::internal {

std::int64_t pseudoField_value(const MessageMetadata& metadata, std::int32_t field) noexcept {
    switch (field) {
        case PSEUDO_UNIFORM_ID:
            return metadata.uniformId;
        case PSEUDO_SEQ_NUM:
            return metadata.seqNum;
        case PSEUDO_PREV_SEQ_NUM:
            return metadata.prevSeqNum;
        case PSEUDO_CONN_MSG_ID:
            return metadata.connMsgId;
        case PSEUDO_TIMESTAMP:
            return metadata.timestamp;
        case PSEUDO_POSS_DUP:
            return metadata.isPossDupFlag != 0 ? 1 : 0;
        case PSEUDO_OUT_OF_SEQUENCE:
            return metadata.isOutOfSequence != 0 ? 1 : 0;
        default:
            return 0;
    }
}

}  // namespace tabulo::internal
