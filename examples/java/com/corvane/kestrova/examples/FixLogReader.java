package com.corvane.kestrova.examples;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.LocalDateTime;
import java.time.ZoneOffset;
import java.time.format.DateTimeFormatter;
import java.time.temporal.ChronoUnit;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * Reads a recorded session: lines of {@code <UTC time> <IN|OUT> <message>}. It reads bytes, since the messages are in
 * no one encoding.
 */
final class FixLogReader {
    private static final int TIME_LENGTH = "YYYYMMDD-HH:MM:SS.ssssss".length();
    private static final DateTimeFormatter TIME = DateTimeFormatter.ofPattern("yyyyMMdd-HH:mm:ss.SSSSSS");

    private FixLogReader() {
    }

    static List<FixLogLine> read(Path file) throws IOException {
        byte[] data = Files.readAllBytes(file);
        List<FixLogLine> lines = new ArrayList<>();
        for (int start = 0; start < data.length;) {
            int end = indexOf(data, '\n', start, data.length);
            if (end < 0) {
                throw new IOException(file + ": the last line has no end");
            }
            lines.add(parse(data, start, end, file + ", line " + (lines.size() + 1)));
            start = end + 1;
        }
        return lines;
    }

    private static FixLogLine parse(byte[] data, int start, int end, String place) throws IOException {
        int wayStart = start + TIME_LENGTH + 1;
        int wayEnd = indexOf(data, ' ', wayStart, end);
        if (wayEnd < 0) {
            throw new IOException(place + " is no record");
        }
        String way = new String(data, wayStart, wayEnd - wayStart, StandardCharsets.US_ASCII);
        if (!way.equals("IN") && !way.equals("OUT")) {
            throw new IOException(place + " is neither IN nor OUT");
        }
        String time = new String(data, start, TIME_LENGTH, StandardCharsets.US_ASCII);
        return new FixLogLine(micros(time), way.equals("OUT"), Arrays.copyOfRange(data, wayEnd + 1, end));
    }

    private static long micros(String time) {
        return ChronoUnit.MICROS.between(LocalDateTime.ofEpochSecond(0, 0, ZoneOffset.UTC),
                LocalDateTime.parse(time, TIME));
    }

    private static int indexOf(byte[] data, char wanted, int from, int to) {
        for (int i = from; i < to; ++i) {
            if (data[i] == wanted) {
                return i;
            }
        }
        return -1;
    }
}
