package com.zanth.vemra.fw.xnb;

/** Functions of the console's native libraries, called by name. */
public final class NativeFunction {
    static {
        // Wherever the process has it from: a library that is loaded already is not loaded again.
        System.loadLibrary("plovbridge");
    }

    private NativeFunction() {
    }

    /**
     * Calls a native function on this thread.
     *
     * @param name the function's exported name, in a library that is loaded with the bridge
     * @param arguments what the function asks for, null allowed
     * @return the function's int result
     * @throws NativeFunctionException the function reported a failure
     * @throws UnsatisfiedLinkError there is no such function
     */
    public static native int call(String name, Object... arguments) throws NativeFunctionException;
}
