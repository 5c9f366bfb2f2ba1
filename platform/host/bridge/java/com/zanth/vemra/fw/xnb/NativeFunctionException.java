package com.zanth.vemra.fw.xnb;

/** A native function reported a failure. */
public class NativeFunctionException extends Exception {
    private static final long serialVersionUID = 1L;

    private final int sysrc;
    private final int comprc;
    private final int result;

    public NativeFunctionException(String message, int sysrc, int comprc, int result) {
        super(message);
        this.sysrc = sysrc;
        this.comprc = comprc;
        this.result = result;
    }

    /** How it failed: 0 when the function set no codes, 2 a refused request, 8 a failed system service. */
    public int getSysrc() {
        return sysrc;
    }

    /** The component's reason code, unsigned. */
    public int getComprc() {
        return comprc;
    }

    /** The int result that the function set all the same. */
    public int getResult() {
        return result;
    }
}
