package plov;

import com.zanth.vemra.fw.xnb.NativeFunction;
import com.zanth.vemra.fw.xnb.NativeFunctionException;
import java.nio.charset.StandardCharsets;

/** What the tests call beside the console's own classes. */
public class Calls {
    private String hidden(String text) {
        return "hidden " + text;
    }

    static final class Derived extends Calls {
    }

    static final class Broken {
        static int value = Integer.parseInt("broken");
    }

    static String all(boolean z, byte b, char c, short s, int i, long j, float f, double d, String t, int[][] a) {
        return z + " " + b + " " + (int) c + " " + s + " " + i + " " + j + " " + f + " " + d + " " + t + " " + a;
    }

    @SuppressWarnings("serial")
    static void nameless() {
        throw new RuntimeException() {
            @Override
            public String toString() {
                throw this;
            }
        };
    }

    static String same(String text) {
        return text;
    }

    static int number(Object text) {
        return text.toString().length();
    }

    /** Null checks that the VM makes by taking the fault. */
    static int caught(int count) {
        int caught = 0;
        for (int i = 0; i < count; i++) {
            try {
                number(i % 2 == 0 ? null : "x");
            } catch (NullPointerException e) {
                caught++;
            }
        }
        return caught;
    }

    private static int deep(int depth) {
        return deep(depth + 1) + 1;
    }

    /** The end of the stack, which the VM finds by a fault too. */
    static int overflow(int depth) {
        try {
            return deep(depth);
        } catch (StackOverflowError e) {
            return 77;
        }
    }

    private static String call(String name, Object... arguments) {
        try {
            return "result " + NativeFunction.call(name, arguments);
        } catch (NativeFunctionException e) {
            return e.getMessage() + " " + e.getSysrc() + " " + e.getComprc() + " " + e.getResult();
        } catch (Error e) {
            return e.toString();
        }
    }

    static String request(String name, int length) {
        return call(name, new byte[length], null);
    }

    static String trim(String destination) {
        return call("xlogTrimLog", destination.getBytes(StandardCharsets.UTF_8));
    }

    public static void main(String[] arguments) {
        System.out.print(request(arguments[0], 5) + ", " + request(arguments[0], 3));
    }
}
