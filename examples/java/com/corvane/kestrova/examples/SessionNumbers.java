package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboSessionInfoTable;
import java.util.ArrayList;
import java.util.List;

/**
 * The sequence numbers of the message that a FIX session sent last and of the one that it received last, kept in a
 * session info table. Repetitions count like other messages.
 */
final class SessionNumbers implements AutoCloseable {
    private static final int LAST_SENT = 1;
    private static final int LAST_RECEIVED = 2;
    private static final MessageClass[] SENT = {MessageClass.APP_TO, MessageClass.ADMIN_TO, MessageClass.RESENT};
    private static final MessageClass[] RECEIVED = {MessageClass.APP_FROM, MessageClass.ADMIN_FROM};

    private final JNITboSessionInfoTable table;
    private final int[] tag = new int[1];
    private final long[] number = new long[1];

    SessionNumbers(TableDirectory tables, String name, int mode) {
        table = tables.openSessionInfo(name, mode, LAST_SENT, LAST_RECEIVED);
    }

    /** Called for each message when it is stored. */
    void take(RecordedMessage message) {
        tag[0] = message.isSent() ? LAST_SENT : LAST_RECEIVED;
        number[0] = message.seqNum;
        table.write(tag, number);
    }

    /**
     * Compares both numbers with the last messages of the message table, and prints them. After a kill one of them may
     * be the number of the message before: when the message was stored and its number was not.
     *
     * @return how many of the two numbers are behind
     */
    int printAndCompare(JNITboMessageTable messages, TableConfiguration configuration, boolean afterKill) {
        return compare("last sent", LAST_SENT, lastTwo(messages, configuration, SENT), afterKill)
                + compare("last received", LAST_RECEIVED, lastTwo(messages, configuration, RECEIVED), afterKill);
    }

    @Override
    public void close() {
        table.close();
    }

    private int compare(String what, int tagOfNumber, List<Integer> expected, boolean afterKill) {
        long kept = table.read(tagOfNumber)[0];
        boolean isCurrent = kept == expected.get(0);
        System.out.printf("     %-26s %,d%s%n", what, kept, isCurrent ? "" : ", the message before the last: "
                + "the kill fell between the two writes");
        if (!isCurrent && !(afterKill && kept == expected.get(1))) {
            throw new DemoFailure(what + " is kept as " + kept + ", and the last messages have " + expected);
        }
        return isCurrent ? 0 : 1;
    }

    /** The sequence numbers of the last message of some classes and of the one before it, 0 where there is none. */
    private static List<Integer> lastTwo(JNITboMessageTable messages, TableConfiguration configuration,
            MessageClass[] classes) {
        MessageQueryConditions newestFirst =
                MessageQueryConditions.builder(configuration).messageClasses(classes).backward().build();
        List<Integer> numbers = new ArrayList<>();
        Questions.read(messages, newestFirst, 2, message -> numbers.add(message.getMsgSeqNum()));
        while (numbers.size() < 2) {
            numbers.add(0);
        }
        return numbers;
    }
}
