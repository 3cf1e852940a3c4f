package com.corvane.kestrova.benchmarks;

import java.util.Locale;

/** One figure, as a line of JSON on standard output. */
final class Result {
    private Result() {
    }

    static void print(String group, String subject, String metric, String unit, double value) {
        System.out.printf(Locale.ROOT,
                "{\"group\": \"%s\", \"subject\": \"%s\", \"metric\": \"%s\", \"unit\": \"%s\", \"value\": %.6g}%n",
                group, subject, metric, unit, value);
    }
}
