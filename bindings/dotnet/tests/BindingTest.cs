// The binding against libvarnik.so and the simulator. Run from a till folder that holds the
// library, Varnik.Net.dll and config/:  mono BindingTest.exe GROUP SIMULATOR
using System;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text;
using System.Threading;
using Varnik;

static class BindingTest
{
    static string s_till, s_simPath;
    static int s_failures;
    static readonly Terminal T = new Terminal();

    static int Main(string[] args)
    {
        s_till = AppDomain.CurrentDomain.BaseDirectory;
        s_simPath = args[1];
        switch (args[0]) {
            case "session": Session(); break;
            case "cards": Cards(); break;
            case "cancel": Cancel(); break;
            case "files": Files(); break;
            default: Console.WriteLine("unknown group " + args[0]); return 2;
        }
        Console.WriteLine(s_failures == 0 ? "all passed" : s_failures + " failed");
        return s_failures == 0 ? 0 : 1;
    }

    static void Expect(bool ok, string what)
    {
        if (!ok) { ++s_failures; Console.WriteLine("FAIL: " + what); }
    }

    static void Throws<E>(Action call, string what, Func<E, bool> check = null) where E : Exception
    {
        try {
            call();
            Expect(false, what + ": no exception");
        } catch (E e) {
            Expect(check == null || check(e), what + ": " + e.Message);
        } catch (Exception e) {
            Expect(false, what + ": " + e.GetType().Name + " " + e.Message);
        }
    }

    // The simulator on config/COM7; everything the host sent lands in its record file.
    sealed class Sim : IDisposable
    {
        readonly Process m_process;
        readonly string m_record = Path.Combine(s_till, "received.bin");

        public Sim(string options = "")
        {
            File.Delete(m_record);
            var start = new ProcessStartInfo(s_simPath, "--quiet --link " + Path.Combine(s_till, "config/COM7") +
                                             " --record " + m_record + " " + options) {
                UseShellExecute = false, RedirectStandardOutput = true };
            m_process = Process.Start(start);
            m_process.StandardOutput.ReadLine();  // its pty: the link stands
        }

        public byte[] Received { get { return File.Exists(m_record) ? File.ReadAllBytes(m_record) : new byte[0]; } }
        public string ReceivedText { get { return Encoding.GetEncoding(28591).GetString(Received); } }

        public bool WaitFor(string part)
        {
            for (int i = 0; i < 300 && !ReceivedText.Contains(part); ++i)
                Thread.Sleep(10);
            return ReceivedText.Contains(part);
        }

        public void Dispose() { m_process.Kill(); m_process.WaitForExit(); }
    }

    static void Session()
    {
        // No varnik.json: every call is a port failure, and a 110 is not taken for a length.
        Throws<PortUnavailableException>(() => T.Version(), "Version without a port", e => e.Result == 110);
        Throws<PortUnavailableException>(() => T.ReadThaiIdBlock(), "ReadThaiIdBlock without a port");
        using (var sim = new Sim()) {
            T.CheckPort(7);
            T.Probe();
            Throws<PortUnavailableException>(() => T.CheckPort(8), "CheckPort on a port with no device");
            T.CheckPort(7);
        }
        // A version text of exactly 110 characters is a length, not the error.
        string long110 = new string('V', 110);
        using (var sim = new Sim("--version-text " + long110))
            Expect(T.Version() == long110, "110-character version text");
        using (var sim = new Sim("--silent"))
            Throws<NoTerminalException>(() => T.Probe(), "silent terminal", e => e.Result == 1538);

        Expect(T.ThaiColumns("\u0E19\u0E49\u0E33") == 2, "ThaiColumns of a Thai text");
        // The library would end the process on this one; the binding refuses it instead.
        Throws<ArgumentException>(() => T.ThaiColumns(new string('\u0E01', 10240)), "ThaiColumns too long");
        Expect(T.ThaiColumns(new string('\u0E01', 10239)) == 10239, "ThaiColumns of the longest Thai text");
    }

    static void Cards()
    {
        using (var sim = new Sim("--mk-reply 4F:4B")) {
            T.CheckPort(7);
            StripeTracks stripe = T.ReadStripe();
            Expect(stripe.IsSwiped && stripe.Track1.IsChecked && stripe.Track2.IsChecked, "stripe tracks: " + stripe.Text);
            Expect(stripe.Track1.Field == "4111111111111111=2512101" && stripe.Track2.Field == "4111111111111111=2512",
                   "stripe fields");

            Expect(T.ReadPin().SequenceEqual(new byte[] { 0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF, 0, 0, 0, 0, 0, 0, 0, 0 }),
                   "PIN block");
            Expect(T.ReadPinWithPrompt("\u0E1A\u0E32\u0E17").SequenceEqual(new byte[] { 0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF }),
                   "PIN with a prompt");
            Expect(sim.WaitFor("pinclear.json|" + Encoding.GetEncoding(28591).GetString(Encoding.UTF8.GetBytes("\u0E1A\u0E32\u0E17")) + "\0"),
                   "prompt on the wire as UTF-8");
            Throws<ArgumentException>(() => T.ReadPinWithPrompt("@x"), "script request as a prompt");

            KeyLoadReply key = T.LoadMasterKey(Enumerable.Range(1, 16).Select(i => (byte)i).ToArray());
            Expect(!key.Acknowledged && key.Text == "OK", "master key reply " + key.Text);
            Expect(sim.WaitFor("\u0002" + "02" + "\u0001\u0002\u0003"), "master key on the wire");

            Expect(T.ReadEmv().Contains("\"value\":\"JAIDEE/SOMCHAI MR\""), "EMV answer");

            ThaiIdCard text = T.ReadThaiId(), block = T.ReadThaiId(true);
            foreach (var card in new[] { text, block }) {
                Expect(card != null && card.CitizenId == "1234567890121", "Thai ID record");
                if (card == null) continue;
                Expect(card.ThaiName.First == "\u0E2A\u0E21\u0E0A\u0E32\u0E22", "Thai name " + card.ThaiName);
                Expect(card.EnglishName.ToString() == "Mr. Somchai Jaidee", "English name " + card.EnglishName);
                Expect(ThaiIdCard.ToDate(card.BirthDate) == new DateTime(1987, 1, 15), "birth date " + card.BirthDate);
            }
            Expect(text.Photo == null && block.Photo.Length == 5118 && block.Photo[0] == 0xFF && block.Photo[1] == 0xD8,
                   "photo only in the binary form");
            Expect(T.ReadThaiIdText(4).StartsWith("1234567890121|"), "mode 4 is text");
            Throws<ArgumentException>(() => T.ReadThaiIdText(2), "text form with a block mode");
        }
        using (var sim = new Sim("--swipe-fail")) {
            StripeTracks stripe = T.ReadStripe();
            Expect(!stripe.IsSwiped && stripe.Message == "READ ERROR", "failed swipe: " + stripe.Text);
            T.EnableCardReader();
        }
    }

    // A cancel through the token: one CAN on the line, and the terminal's answer comes back.
    static void Cancel()
    {
        using (var sim = new Sim("--pin-wait --swipe-wait")) {
            T.CheckPort(7);
            var source = new CancellationTokenSource();
            var pin = T.ReadPinAsync(source.Token);
            Expect(sim.WaitFor("pinpad.json"), "PIN entry sent");
            source.Cancel();
            source.Cancel();
            Expect(pin.Wait(10000), "PIN entry ended by the cancel");
            Expect(sim.ReceivedText.Count(c => c == '\u0018') == 1, "one CAN on the line");

            // The stripe: the terminal's answer to the cancel is a message, not tracks.
            source = new CancellationTokenSource();
            var stripe = T.ReadStripeAsync(source.Token);
            Expect(sim.WaitFor("Swipe Card :"), "stripe read sent");
            source.CancelAfter(50);
            Expect(stripe.Wait(10000) && !stripe.Result.IsSwiped && stripe.Result.Message == "\u0018", "cancelled swipe");
            Expect(sim.ReceivedText.Count(c => c == '\u0018') == 2, "second CAN");

            source.Cancel();
            Expect(T.ReadEmvAsync(source.Token).IsCanceled, "cancelled before the start");
        }
    }

    static void Files()
    {
        string file = Path.Combine(s_till, "receipt.json");
        File.WriteAllText(file, "{\"logo\":1}");
        using (var sim = new Sim("--files pinpad.json:10")) {
            T.CheckPort(7);
            ExecResult version = T.Exec("version"), empty = T.Exec("{}");
            Expect(version.Code == 1 && version.Text == "NEW6210 SIM 1.0", "Exec VERSION");
            Expect(empty.Failure == Failure.ScriptError && !empty.Succeeded, "Exec of a document with no format");
            // A cancel after the end sends nothing: the port stays open after a script, and a
            // stray cancel would reach the next call.
            var source = new CancellationTokenSource();
            var later = T.ExecAsync("VERSION", source.Token);
            Expect(later.Wait(10000) && later.Result.Text == "NEW6210 SIM 1.0", "Exec async");
            source.Cancel();
            Expect(T.Exec("VERSION").Code == 1 && !sim.ReceivedText.Contains("\u0018"), "no stray CAN");
            Throws<CommandFailedException>(() => empty.ThrowIfFailed("Exec"), "ThrowIfFailed", e => e.Result == -2);

            T.Upload(file);
            Expect(T.ListFiles().SequenceEqual(new[] { "pinpad.json 10", "receipt.json 10" }), "files after upload");
            T.DeleteFile("pinpad.json");
            Expect(T.ListFiles().SequenceEqual(new[] { "receipt.json 10" }), "files after delete");
            Throws<FileNotFoundException>(() => T.Upload(file + ".missing"), "upload of a missing file");
            T.Probe();  // the scripts leave the port open: close it before the terminal goes
        }
        using (var sim = new Sim("--fail-upload=receipt.json")) {
            Throws<CommandFailedException>(() => T.Upload(file), "upload the terminal failed",
                                           e => e.Failure == Failure.CommandRefused && e.Result == -1);
            T.Probe();
        }
    }
}
