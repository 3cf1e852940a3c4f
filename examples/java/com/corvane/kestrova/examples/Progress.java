package com.corvane.kestrova.examples;

/** Shows how far a step is: a bar that grows on a terminal, a few plain lines elsewhere. */
final class Progress {
    private static final boolean ON_TERMINAL = System.console() != null;
    private static final int BAR_WIDTH = 40;
    private static final int PLAIN_LINES = 2;

    private final String label;
    private final long total;
    private long shown;

    Progress(String label, long total) {
        this.label = label;
        this.total = total;
        show(0);
    }

    /** Cheap enough to be called for every message. */
    void update(long done) {
        int steps = ON_TERMINAL ? BAR_WIDTH : PLAIN_LINES;
        if (done * steps / total > shown) {
            shown = done * steps / total;
            show(done);
        }
    }

    private void show(long done) {
        if (ON_TERMINAL) {
            String bar = "#".repeat((int) shown) + ".".repeat(BAR_WIDTH - (int) shown);
            System.out.printf("\r   %-28s [%s] %3d%%%s", label, bar, done * 100 / total, done >= total ? "\n" : "");
            System.out.flush();
        } else if (done > 0) {
            System.out.printf("   %-28s %3d%%%n", label, done * 100 / total);
        }
    }
}
