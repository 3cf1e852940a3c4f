package com.corvane.kestrova.examples;

/** Something is not as it must be; ends the demo. */
final class DemoFailure extends RuntimeException {
    private static final long serialVersionUID = 1L;

    DemoFailure(String message) {
        super(message);
    }
}
