package com.corvane.kestrova.examples;

import java.util.Map;
import java.util.Set;

/** The FIX tags that this engine knows by name. */
final class FixTag {
    static final int ACCOUNT = 1;
    static final int BEGIN_STRING = 8;
    static final int BODY_LENGTH = 9;
    static final int CHECK_SUM = 10;
    static final int CL_ORD_ID = 11;
    static final int MSG_SEQ_NUM = 34;
    static final int MSG_TYPE = 35;
    static final int NEW_SEQ_NO = 36;
    static final int ORDER_QTY = 38;
    static final int POSS_DUP_FLAG = 43;
    static final int PRICE = 44;
    static final int SENDER_COMP_ID = 49;
    static final int SENDING_TIME = 52;
    static final int SYMBOL = 55;
    static final int TARGET_COMP_ID = 56;
    static final int GAP_FILL_FLAG = 123;
    static final int RESET_SEQ_NUM_FLAG = 141;

    /** Fields that a message table holds as metadata, or that follow from the others. */
    static final Set<Integer> METADATA =
            Set.of(BEGIN_STRING, BODY_LENGTH, CHECK_SUM, MSG_SEQ_NUM, MSG_TYPE, POSS_DUP_FLAG, SENDING_TIME);

    /** A length field, and the data field behind it, which is as long as the length field says. */
    private static final Map<Integer, Integer> DATA_OF_LENGTH = Map.ofEntries(Map.entry(90, 91), Map.entry(93, 89),
            Map.entry(95, 96), Map.entry(212, 213), Map.entry(348, 349), Map.entry(350, 351), Map.entry(352, 353),
            Map.entry(354, 355), Map.entry(358, 359), Map.entry(360, 361), Map.entry(362, 363), Map.entry(364, 365),
            Map.entry(445, 446), Map.entry(618, 619), Map.entry(621, 622));

    private FixTag() {
    }

    /** The data field whose length this field gives; 0 when it gives none. */
    static int dataOf(int lengthTag) {
        return DATA_OF_LENGTH.getOrDefault(lengthTag, 0);
    }
}
