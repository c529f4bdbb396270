package com.kestal.tamb.brantle.sample;

import com.kestal.tamb.brantle.manager.Brantle;
import com.kestal.tamb.brantle.report.ScanReport;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;

/**
 * A host as small as can be: registers the natives through the plug-in hooks, scans folders in a pool of threads, each
 * into a folder of its own, and prints what became of every report.
 *
 * <pre>java -cp brantle.jar:brantle-sample.jar com.kestal.tamb.brantle.sample.SampleHost BRIDGE LIBRARY OUTPUT REPOSITORY...</pre>
 */
public final class SampleHost {
    private static final int THREADS = 4;

    private SampleHost() {}

    public static void main(String[] args) throws Exception {
        if (args.length < 4) {
            System.err.println("usage: SampleHost BRIDGE LIBRARY OUTPUT REPOSITORY...");
            System.exit(22);
        }
        System.load(Paths.get(args[0]).toAbsolutePath().toString());
        long library = PluginBridge.open(Paths.get(args[1]).toAbsolutePath().toString());
        if (library == 0) throw new IllegalStateException("cannot open " + args[1]);
        boolean good = true;
        try {
            if (PluginBridge.onLoad(library, Brantle.class) != 0) throw new IllegalStateException("Dravo_OnLoad failed");
            try {
                good = scanAll(args);
            } finally {
                PluginBridge.onUnload(library, Brantle.class);
            }
        } finally {
            PluginBridge.close(library);
        }
        System.exit(good ? 0 : 1);
    }

    /** The pool has ended when this returns: the natives must not be unregistered while one runs. */
    private static boolean scanAll(String[] args) throws Exception {
        ExecutorService pool = Executors.newFixedThreadPool(THREADS);
        List<Future<Boolean>> scans = new ArrayList<>();
        try {
            for (int i = 3; i < args.length; i++) {
                String repository = args[i];
                Path output = Files.createDirectories(Paths.get(args[2], String.valueOf(i - 2)));
                Files.deleteIfExists(output.resolve("info.xml")); // else an old report could pass for this scan's
                scans.add(pool.submit(() -> scan(repository, output)));
            }
            boolean good = true;
            for (Future<Boolean> scan : scans) good &= scan.get();
            return good;
        } finally {
            pool.shutdown();
            while (!pool.awaitTermination(1, java.util.concurrent.TimeUnit.MINUTES)) {
                System.err.println("waiting for scans: nothing stops them");
            }
        }
    }

    private static boolean scan(String repository, Path output) {
        int result = new Brantle().getCertsAndInfoByScanningLocalPath(repository, output.toString());
        String outcome = result == Brantle.OK ? outcome(output) : meaning(result);
        System.out.println(repository + ": " + outcome);
        return outcome.endsWith(" files");
    }

    private static String meaning(int result) {
        switch (result) {
            case Brantle.EMPTY_ENTRY:
                return "stopped at an entry without a path, no report";
            case Brantle.INVALID_PATH:
                return "no such path, server or share";
            case Brantle.CONNECT_FAILED:
                return "the share refused the connection";
            case Brantle.CONNECT_CONFLICT:
                return "another user's scan of that server runs, or the password is wrong: try again later";
            case Brantle.FAILED:
                return "failed inside the library, see its log";
            default:
                return "result " + result;
        }
    }

    /** A report can be missing, cut or incomplete although the scan ended well. */
    private static String outcome(Path output) {
        int files = 0;
        int certificates = 0;
        try (ScanReport report = ScanReport.open(output)) {
            for (ScanReport.Entry file = report.next(); file != null; file = report.next()) {
                files++;
                certificates += file.certificateNames().size();
            }
            if (!report.isComplete()) return files + " files, left out: " + report.whatIsMissing();
        } catch (ScanReport.MalformedReportException e) {
            return "the report is damaged: " + e.getMessage();
        } catch (IOException e) {
            return "there is no report: " + e.getMessage();
        }
        return certificates + " certificates of " + files + " files";
    }
}
