package com.corvane.kestrova.benchmarks;

/** A table that orders are stored in, through one of the ways. */
interface Target extends AutoCloseable {
    void store(Order order);

    @Override
    void close();
}
