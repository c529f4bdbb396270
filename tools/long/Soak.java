import com.kestal.tamb.brantle.manager.Brantle;
import java.io.*;
import java.nio.file.*;
import java.util.*;
import java.util.concurrent.*;

/**
 * Twelve threads of a host: Soak LIBRARY TREE SCRATCH SECONDS DOMAIN USER PASSWORD GOOD SLOW DYING SILENT; the last four
 * are servers, whose share "tree" holds TREE as "software". Or calls one after the other: Soak LIBRARY TREE SCRATCH CALLS.
 */
public final class Soak {
    private static final Map<Integer, Integer> results = new ConcurrentSkipListMap<>();
    private static final List<long[]> samples = new ArrayList<>();
    private static volatile boolean ended;

    private interface Work {
        void scan(Path out) throws Exception;
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        JvmTest.scratch = Files.createDirectories(Path.of(args[2]));
        int much = Integer.parseInt(args[3]);
        if (args.length > 4) soak(args, much);
        else calls(local(args[1], null), much);
        System.out.println("results " + results);
        judge();
    }

    private static void soak(String[] args, int seconds) throws Exception {
        Path alone = JvmTest.fresh("alone");
        local(args[1], null).scan(alone);
        Map<String, String> whole = JvmTest.rebased(JvmTest.contents(alone), args[1]);
        Work local = local(args[1], whole);
        Work good = share(args, args[7], args[6], whole, 0);
        Work slow = share(args, args[8], args[6], whole, 0);
        Work dying = share(args, args[9], args[6], null, 0, 20001, 20002);
        Work silent = share(args, args[10], args[6], null, 20001);
        Work mistyped = share(args, "localhost", "mistyped", null, 20002);
        Work[] all = {local, local, local, local, good, good, good, slow, dying, dying, silent, mistyped};
        long end = System.nanoTime() + seconds * 1_000_000_000L;
        CyclicBarrier round = new CyclicBarrier(all.length, () -> {
            sample();
            ended = System.nanoTime() > end;
        });
        for (int i = 0; i < all.length; i++) {
            Work work = all[i];
            String name = "own" + i;
            Thread thread = new Thread(() -> {
                try {
                    while (!ended) {
                        long until = System.nanoTime() + 5_000_000_000L;
                        while (System.nanoTime() < until) work.scan(JvmTest.fresh(name));
                        round.await();
                    }
                } catch (Throwable e) {
                    e.printStackTrace();
                    Runtime.getRuntime().halt(1);
                }
            });
            thread.start();
        }
        while (!ended) Thread.sleep(100);
    }

    private static Work local(String tree, Map<String, String> whole) {
        return out -> check(new Brantle().getCertsAndInfoByScanningLocalPath(tree, out.toString()), out, tree, whole, 0);
    }

    private static Work share(String[] args, String server, String password, Map<String, String> whole, int... allowed) {
        String path = "\\\\" + server + "\\tree\\software";
        return out -> check(new Brantle().getCertsAndInfoByScanningNwPath(path, out.toString(), args[4], args[5], password),
                out, path, whole, allowed);
    }

    private static void check(int code, Path out, String root, Map<String, String> whole, int... allowed) throws IOException {
        results.merge(code, 1, Integer::sum);
        if (Arrays.stream(allowed).noneMatch(one -> one == code)) throw new AssertionError(root + ": result " + code);
        if ((code == 0) != Files.exists(out.resolve("info.xml"))) throw new AssertionError(root + ": report of " + code);
        if (whole != null && !whole.equals(JvmTest.rebased(JvmTest.contents(out), root))) throw new AssertionError(root);
    }

    private static void calls(Work work, int count) throws Exception {
        Path out = JvmTest.fresh("calls");
        for (int i = 1; i <= count; i++) {
            work.scan(out);
            if (i % (count / 20) == 0) sample();
        }
    }

    /** KiB, threads, descriptors and children, while no scan runs. */
    private static void sample() {
        try {
            System.gc();
            long[] now = {0, new File("/proc/self/task").list().length, new File("/proc/self/fd").list().length, 0};
            for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
                if (line.startsWith("VmRSS:")) now[0] = Long.parseLong(line.replaceAll("\\D", ""));
            }
            for (String task : new File("/proc/self/task").list()) {
                now[3] += Files.readString(Path.of("/proc/self/task", task, "children")).chars().filter(c -> c == ' ').count();
            }
            samples.add(now);
            System.out.println("KiB, threads, descriptors, children: " + Arrays.toString(now));
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    /** Flat in the second half, when all classes are loaded and compiled. */
    private static void judge() {
        long[] early = samples.get(samples.size() / 2);
        long[] late = samples.get(samples.size() - 1);
        System.out.println("second half: from " + Arrays.toString(early) + " to " + Arrays.toString(late));
        if (late[0] - early[0] > 4096 || late[1] > early[1] || late[2] > early[2] || late[3] != 0) throw new AssertionError("not flat");
    }
}
