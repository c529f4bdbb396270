import com.kestal.tamb.brantle.manager.Brantle;
import com.kestal.tamb.brantle.report.ScanReport;
import com.kestal.tamb.brantle.sample.PluginBridge;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.function.ToIntFunction;
import java.util.regex.Matcher;

/** The library in a real virtual machine. Arguments: mode, bridge, library, fixture tree, scratch folder. */
public final class JvmTest {
    /** Lacks two of the three natives. */
    static final class Lacking {
        native int getCertsAndInfoByScanningLocalPath(String repository, String output);
    }

    static Path scratch;
    private static Path tree;
    private static int checks;

    public static void main(String[] args) throws Exception {
        tree = Path.of(args[3]);
        scratch = Path.of(args[4]).resolve(args[0]);
        removeAll(scratch);
        Files.createDirectories(scratch);
        String library = Path.of(args[2]).toAbsolutePath().toString();
        System.load(args[1]);
        if (!args[0].equals("hooks")) System.load(library);
        switch (args[0]) {
            case "named" -> natives();
            case "hooks" -> hooks(library);
            case "report" -> reports();
            case "read" -> count(Path.of(args[5]));
            case "share" -> share(args[5], args[6], args[7], args[8]);
            default -> throw new IllegalArgumentException(args[0]);
        }
        System.out.println(args[0] + ": " + checks + " checks");
    }

    /** Prints how many entries and certificates a report has. */
    private static void count(Path folder) throws Exception {
        int entries = 0;
        int certificates = 0;
        try (ScanReport report = ScanReport.open(folder)) {
            for (ScanReport.Entry file = report.next(); file != null; file = report.next()) {
                entries++;
                certificates += file.certificateNames().size();
            }
        }
        System.out.print(entries + " " + certificates + " ");
    }

    private static void natives() throws Exception {
        Brantle brantle = new Brantle();
        Path out = fresh("out");
        equal(0, brantle.getCertsAndInfoByScanningLocalPath(tree.toString(), out.toString()), "local scan");
        Map<String, String> expected = contents(out);
        check(expected.containsKey("info.xml") && expected.size() > 1, "report and certificates: " + expected.keySet());

        Path odd = fresh("ümläut 漢字 \uD83D\uDE00");
        equal(0, brantle.getCertsAndInfoByScanningLocalPath(tree.toString(), odd.toString()), "non-ASCII output");
        check(expected.equals(contents(odd)), "same output in a non-ASCII folder");

        equal(20001, brantle.getCertsAndInfoByScanningLocalPath("", out.toString()), "empty path");
        equal(20001, brantle.getCertsAndInfoByScanningLocalPath(scratch + "/absent", out.toString()), "absent path");
        equal(20001, brantle.testAccessOnNwShareWithParams(tree.toString(), "D", "u", "p"), "no share");
        equal(20001, brantle.getCertsAndInfoByScanningNwPath(tree.toString(), out.toString(), "D", "u", "p"), "no share");
    }

    /** Both network natives against a server whose share "tree" holds the folder `local` as "software". */
    private static void share(String local, String domain, String user, String password) throws Exception {
        Brantle brantle = new Brantle();
        String path = "\\\\127.0.0.1\\tree\\software";
        Path out = fresh("disk");
        equal(0, brantle.getCertsAndInfoByScanningLocalPath(local, out.toString()), "disk");
        Map<String, String> expected = contents(out);

        equal(0, brantle.testAccessOnNwShareWithParams(path, domain, user, password), "access");
        equal(20001, brantle.testAccessOnNwShareWithParams(path + "\\absent", domain, user, password), "no folder");
        // A connection that a request left behind would now be one with other credentials.
        equal(20002, brantle.testAccessOnNwShareWithParams(path, domain, user, "other"), "nothing was left connected");

        sideBySide(rebased(expected, local), path,
                own -> brantle.getCertsAndInfoByScanningNwPath(path, own, domain, user, password));
    }

    /** Eight scans at once, each into a folder of its own, write what one wrote. */
    private static void sideBySide(Map<String, String> expected, String root, ToIntFunction<String> scan) throws Exception {
        ExecutorService pool = Executors.newFixedThreadPool(8);
        List<Future<Integer>> results = new ArrayList<>();
        for (int i = 0; i < 8; i++) {
            Path own = fresh("side" + i);
            results.add(pool.submit(() -> scan.applyAsInt(own.toString())));
        }
        for (int i = 0; i < 8; i++) {
            equal(0, results.get(i).get(), "scan " + i);
            check(expected.equals(rebased(contents(scratch.resolve("side" + i)), root)), "what one scan wrote");
        }
        pool.shutdown();
    }

    /** Entries of the reader as "name|product|installer|certificates", then what is missing or the fault's place. */
    private static String read(Path folder) throws Exception {
        StringBuilder found = new StringBuilder();
        try (ScanReport report = ScanReport.open(folder)) {
            for (ScanReport.Entry file = report.next(); file != null; file = report.next()) {
                found.append(String.format("%s|%s|%s|%d ", file.name(), file.productName(), file.isInstaller(),
                        file.certificates().size()));
            }
            return found + (report.isComplete() ? "complete" : report.whatIsMissing());
        } catch (ScanReport.MalformedReportException e) {
            return found + "fault " + e.line() + ":" + e.column();
        }
    }

    private static void reports() throws Exception {
        Path out = fresh("report");
        equal(0, new Brantle().getCertsAndInfoByScanningLocalPath(tree.toString(), out.toString()), "scan");
        String found = read(out);
        String written = contents(out).get("info.xml");
        equal(written.split("<Executable>").length, found.split("\\|(true|false)\\|").length, "entries");
        check(found.contains(tree + "/packages/plain.msi|Plain Product|true|0 "), "package: " + found);
        check(found.contains("|false|1 ") && found.endsWith(" complete"), "a signer: " + found);

        Path reports = tree.resolve("../../utils/report");
        String good = Files.readString(reports.resolve("good.xml"));
        for (String row : Files.readAllLines(reports.resolve("reports.tsv")).stream().skip(1).toList()) {
            String[] cells = row.split("\t");
            String put = cells[1].translateEscapes().replace("{long}", "x".repeat(1 << 20));
            Path crafted = fresh("crafted");
            Files.writeString(crafted.resolve("info.xml"),
                    good.replaceFirst(cells[0], Matcher.quoteReplacement(put)), StandardCharsets.ISO_8859_1);
            found = read(crafted);
            check(found.startsWith(cells[3]), row + " " + found);
        }
        String entry = "<Executable><Name>a</Name><CertificatesExtracted count=\"0\"/></Executable>";
        try (var writer = Files.newBufferedWriter(fresh("million").resolve("info.xml"))) {
            writer.write("<ExecutableData>\n");
            for (int i = 0; i < 1_000_000; i++) writer.write(entry);
            writer.write("</ExecutableData>\n");
        }
        int entries = 0;
        try (ScanReport report = ScanReport.open(scratch.resolve("million"))) {
            while (report.next() != null) entries++;
            check(report.isComplete(), "a million entries");
        }
        equal(1_000_000, entries, "entries");
    }

    private static void hooks(String path) throws Exception {
        for (int round = 0; round < 100; round++) {
            long library = PluginBridge.open(path);
            check(library != 0, "open, round " + round);
            equal(-1, PluginBridge.onLoad(library, Lacking.class), "a class that lacks methods");
            equal(0, PluginBridge.onLoad(library, Brantle.class), "OnLoad, round " + round);
            Path out = fresh("out");
            equal(0, new Brantle().getCertsAndInfoByScanningLocalPath(tree.toString(), out.toString()), "scan " + round);
            check(Files.exists(out.resolve("info.xml")), "report, round " + round);
            equal(0, PluginBridge.onUnload(library, Brantle.class), "OnUnload, round " + round);
            boolean unlinked = false;
            try {
                new Brantle().getCertsAndInfoByScanningLocalPath(tree.toString(), out.toString());
            } catch (UnsatisfiedLinkError e) {
                unlinked = true;
            }
            check(unlinked, "natives are gone, round " + round);
            PluginBridge.close(library);
        }
    }

    /** The report's elements in an order of their own (copies of a tree list in any order), without the tree's path. */
    static Map<String, String> rebased(Map<String, String> contents, String root) {
        Map<String, String> copy = new TreeMap<>(contents);
        String[] records = copy.get("info.xml").replace(root, "").replace('\\', '/').split("(?=<Executable>)");
        java.util.Arrays.sort(records, 1, records.length);
        String joined = String.join("", records).replaceAll("</ExecutableData>", "").replaceAll("\\s+", " ");
        copy.put("info.xml", joined);
        return copy;
    }

    static Path fresh(String name) throws IOException {
        Path path = scratch.resolve(name);
        removeAll(path);
        return Files.createDirectories(path);
    }

    static Map<String, String> contents(Path folder) throws IOException {
        Map<String, String> found = new TreeMap<>();
        try (var files = Files.list(folder)) {
            for (Path file : files.toList()) {
                found.put(file.getFileName().toString(), Files.readString(file, StandardCharsets.UTF_8));
            }
        }
        return found;
    }

    private static void removeAll(Path path) throws IOException {
        if (!Files.exists(path)) return;
        try (var paths = Files.walk(path)) {
            for (Path each : paths.sorted(Comparator.reverseOrder()).toList()) Files.delete(each);
        }
    }

    private static void equal(int expected, int found, String what) {
        check(expected == found, what + ": expected " + expected + ", found " + found);
    }

    private static void check(boolean ok, String what) {
        checks++;
        if (!ok) throw new AssertionError(what);
    }
}
