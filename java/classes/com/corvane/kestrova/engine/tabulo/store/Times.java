package com.corvane.kestrova.engine.tabulo.store;

import java.time.Instant;
import java.util.concurrent.TimeUnit;

/** Time stamps in a table's unit, and instants. */
final class Times {
    private static final long NANOS = 1_000_000_000L;
    private static final long YEAR_1990 = 631_152_000L;
    private static final long YEAR_2100 = 4_102_444_800L;
    private static final TimeUnit[] UNITS =
            {TimeUnit.SECONDS, TimeUnit.MILLISECONDS, TimeUnit.MICROSECONDS, TimeUnit.NANOSECONDS};

    private Times() {
    }

    static TimeUnit check(TimeUnit unit) {
        for (TimeUnit known : UNITS) {
            if (unit == known) {
                return unit;
            }
        }
        throw new IllegalArgumentException("a table counts no " + unit
                + ", but seconds, milliseconds, microseconds or nanoseconds");
    }

    /** The unit in which a time lies between 1990 and 2100, which one at most does; else milliseconds. */
    static TimeUnit guess(long timestamp) {
        for (TimeUnit unit : UNITS) {
            long second = Math.floorDiv(timestamp, unit.convert(1, TimeUnit.SECONDS));
            if (second >= YEAR_1990 && second < YEAR_2100) {
                return unit;
            }
        }
        return TimeUnit.MILLISECONDS;
    }

    /** A fraction that is finer than the unit is dropped, towards the past. */
    static long toStamp(Instant time, TimeUnit unit) {
        long perSecond = unit.convert(1, TimeUnit.SECONDS);
        try {
            return Math.addExact(Math.multiplyExact(time.getEpochSecond(), perSecond),
                    time.getNano() / (NANOS / perSecond));
        } catch (ArithmeticException beyond) {
            throw new IllegalArgumentException(time + " cannot be counted in " + unit, beyond);
        }
    }

    /** What lies beyond all instants becomes the first or the last of them: a file may hold any number. */
    static Instant toInstant(long stamp, TimeUnit unit) {
        long perSecond = unit.convert(1, TimeUnit.SECONDS);
        long second = Math.floorDiv(stamp, perSecond);
        if (second < Instant.MIN.getEpochSecond()) {
            return Instant.MIN;
        }
        if (second > Instant.MAX.getEpochSecond()) {
            return Instant.MAX;
        }
        return Instant.ofEpochSecond(second, Math.floorMod(stamp, perSecond) * (NANOS / perSecond));
    }

    static long now(TimeUnit unit) {
        return unit == TimeUnit.MILLISECONDS ? System.currentTimeMillis() : toStamp(Instant.now(), unit);
    }
}
