package com.corvane.kestrova.engine.tabulo.store;

import java.util.concurrent.atomic.AtomicInteger;

/**
 * Counts the uniform message ids, which number the messages of all tables of an engine in one sequence. Give one object
 * to all stores of an engine ({@link MessageStore#useIds(UniformIds)}) before the first message is stored; a
 * {@link Watch} then delivers the messages of all of them in the order in which they were stored.
 *
 * <p>Any number of threads may use an object. Ids only rise; a message that was refused may leave a number unused.
 */
public final class UniformIds {
    private final AtomicInteger last = new AtomicInteger();

    /** Begins to count at 1. */
    public UniformIds() {
    }

    /**
     * The id that was given last.
     *
     * @return the id, 0 before the first
     */
    public int last() {
        return last.get();
    }

    /**
     * Makes sure that only ids above one are given from now on.
     *
     * @param id an id that is in use; one below the last that was given changes nothing
     */
    public void raiseTo(int id) {
        last.accumulateAndGet(id, Math::max);
    }

    /** The next id. */
    int next() {
        int id = last.incrementAndGet();
        if (id <= 0) {
            last.set(Integer.MAX_VALUE);
            throw new IllegalStateException("all uniform message ids are used: 2147483647 is the last");
        }
        return id;
    }

    /** Takes an id back that no message got, unless another one was given meanwhile. */
    void giveBack(int id) {
        last.compareAndSet(id, id - 1);
    }

    /**
     * Says how far it has counted.
     *
     * @return the last id
     */
    @Override
    public String toString() {
        return "uniform message ids up to " + last;
    }
}
