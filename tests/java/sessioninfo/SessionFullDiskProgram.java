package com.corvane.kestrova.engine.tabulo.jni;

import java.nio.file.Path;

/**
 * Uses session info tables where the system takes not a byte for any file, and prints what each step gives: a code, or
 * values. Takes the directory of the tables "whole" and "cut".
 */
final class SessionFullDiskProgram {
    private SessionFullDiskProgram() {
    }

    private interface Step {
        String run();
    }

    private static void print(String what, Step step) {
        String result;
        try {
            result = step.run();
        } catch (JNITboException failed) {
            result = "error " + failed.getErrorCode();
        }
        System.out.println(what + ": " + result);
    }

    private static String write(long table) {
        SessionNatives.write(table, 3, 33);
        return "written";
    }

    private static String drop(long table) {
        SessionNatives.drop(table);
        return "dropped";
    }

    private static String open(Path directory, String name) {
        SessionNatives.open(new Provider(directory).named(name), Natives.WRITE);
        return "opened";
    }

    public static void main(String[] arguments) {
        Path directory = Path.of(arguments[0]);
        long writer = SessionNatives.open(new Provider(directory).named("whole"), Natives.WRITE);
        print("writer writes", () -> write(writer));
        print("writer reads", () -> Long.toString(SessionNatives.read(writer, 3)[0]));
        print("writer writes again", () -> write(writer));
        print("writer drops", () -> drop(writer));
        SessionNatives.free(writer);
        long reader = SessionNatives.open(new Provider(directory).named("whole"), Natives.READ);
        print("reader reads", () -> Long.toString(SessionNatives.read(reader, 3)[0]));
        print("reader writes", () -> write(reader));
        print("reader reads again", () -> Long.toString(SessionNatives.read(reader, 3)[0]));
        SessionNatives.free(reader);
        print("cut table", () -> open(directory, "cut"));
        print("new table", () -> open(directory, "new"));
    }
}
