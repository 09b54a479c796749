// The friendly layer: one method per thing a till does with the terminal. Buffers are sized
// for the largest reply the library can write, texts come back decoded, failures as
// exceptions that name them, and every call that waits for the terminal has an async form
// whose CancellationToken sends the terminal one cancel.
using System;
using System.Collections.Generic;
using System.IO;
using System.Text;
using System.Threading;
using System.Threading.Tasks;

namespace Varnik
{
    public sealed class Terminal
    {
        // The library's reply buffer: no reply it hands on is longer.
        public const int ReplyCapacity = 204800;
        // The stripe text adds sentinels and check digits; TIS-620 grows to three bytes a
        // character in UTF-8.
        public const int TextBufferSize = ReplyCapacity + 16;
        public const int ThaiTextBufferSize = 3 * ReplyCapacity + 1;
        // The library's ThaiLen work area; a text that fills it ends the process.
        const int ThaiLenArea = 10240;

        const int Ambiguous = 110;  // a port failure, or a length of 110
        const byte Untouched = 0xA5;

        // One library per process, one terminal call at a time.
        static readonly object Gate = new object();

        static readonly Encoding Utf8 = new UTF8Encoding(false);

        // --- session ---------------------------------------------------------------------

        // Is the terminal there on the configured port?
        public void Probe()
        {
            Check("PosSelect", Call(() => NativeMethods.PosSelect()));
        }

        // Probes COM<port>; on success the library remembers it in config/varnik.json.
        public void CheckPort(int port)
        {
            Check("PosCheckPort", Call(() => NativeMethods.PosCheckPort(port)));
        }

        // Puts the terminal's card slot in front of this process's PC/SC calls.
        public void EnableCardReader()
        {
            int result = Call(() => NativeMethods.ReaderSelect());
            if (result == -1)
                throw new VarnikException("ReaderSelect", result, Failure.RedirectionFailed,
                                          "the card slot could not be put in front of PC/SC");
            Check("ReaderSelect", result);
        }

        public string Version() { return Call(VersionNow); }

        public Task<string> VersionAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(VersionNow, token);
        }

        // For the plain calls: ends the one that waits on another thread. The terminal gets
        // one cancel and that call returns with its answer. With nothing waiting it is kept
        // for the next wait on a port that a script left open, so prefer the async forms.
        public static void Cancel()
        {
            NativeMethods.PosCancel();
        }

        // Counts the display columns of a Thai text: stacked marks take none. No terminal.
        public int ThaiColumns(string text)
        {
            byte[] bytes = Terminated(text ?? "");
            if (Tis620Length(bytes) >= ThaiLenArea)
                throw new ArgumentException("text too long for ThaiLen (" + ThaiLenArea + " bytes)", "text");
            return Call(() => NativeMethods.ThaiLen(bytes));
        }

        // --- cards and keypad ------------------------------------------------------------

        public StripeTracks ReadStripe() { return Call(ReadStripeNow); }

        public Task<StripeTracks> ReadStripeAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ReadStripeNow, token);
        }

        // The PIN entry screen stored on the terminal: its reply decoded from hexadecimal,
        // the 16 bytes before the library's fixed terminator.
        public byte[] ReadPin() { return Call(ReadPinNow); }

        public Task<byte[]> ReadPinAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ReadPinNow, token);
        }

        // PIN entry with a prompt of your own ("" for the terminal's "INPUT"): 8 bytes.
        public byte[] ReadPinWithPrompt(string prompt)
        {
            return Call(() => ReadPinWithPromptNow(prompt));
        }

        public Task<byte[]> ReadPinWithPromptAsync(string prompt,
                                                   CancellationToken token = default(CancellationToken))
        {
            return Waiting(() => ReadPinWithPromptNow(prompt), token);
        }

        public KeyLoadReply LoadMasterKey(byte[] key)
        {
            return Call(() => LoadMasterKeyNow(key));
        }

        public Task<KeyLoadReply> LoadMasterKeyAsync(byte[] key,
                                                     CancellationToken token = default(CancellationToken))
        {
            return Waiting(() => LoadMasterKeyNow(key), token);
        }

        // The terminal's EMV answer, a JSON text of the tags it read.
        public string ReadEmv() { return Call(ReadEmvNow); }

        public Task<string> ReadEmvAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ReadEmvNow, token);
        }

        // The Thai ID card: withPhoto asks for the binary form, which carries the photo too.
        // Null when the terminal's answer is no card record (a cancel, a card it can't read).
        public ThaiIdCard ReadThaiId(bool withPhoto = false)
        {
            return Call(() => ReadThaiIdNow(withPhoto));
        }

        public Task<ThaiIdCard> ReadThaiIdAsync(bool withPhoto = false,
                                                CancellationToken token = default(CancellationToken))
        {
            return Waiting(() => ReadThaiIdNow(withPhoto), token);
        }

        // The raw forms: mode & 3 of 0 or 1 gives text, 2 or 3 the terminal's block.
        public string ReadThaiIdText(int mode = 0)
        {
            RequireMode(mode, false);
            return Call(() => ReadThaiIdTextNow(mode));
        }

        public byte[] ReadThaiIdBlock(int mode = 2)
        {
            RequireMode(mode, true);
            return Call(() => ReadThaiIdBlockNow(mode));
        }

        // --- command scripts -------------------------------------------------------------

        // "VERSION", a JSON command document, or the name of one in the library's json folder.
        public ExecResult Exec(string command) { return Call(() => ExecNow("PosExec", command)); }

        public Task<ExecResult> ExecAsync(string command, CancellationToken token = default(CancellationToken))
        {
            return Waiting(() => ExecNow("PosExec", command), token);
        }

        // Puts one file from this computer on the terminal, under its base name.
        public void Upload(string hostFile)
        {
            string command = UploadCommand(hostFile);
            Call(() => ExecNow("Upload", command).ThrowIfFailed("Upload"));
        }

        public Task UploadAsync(string hostFile, CancellationToken token = default(CancellationToken))
        {
            string command = UploadCommand(hostFile);
            return Waiting(() => ExecNow("Upload", command).ThrowIfFailed("Upload"), token);
        }

        // The terminal's files, one line each as the terminal lists them.
        public IList<string> ListFiles() { return Call(ListFilesNow); }

        public Task<IList<string>> ListFilesAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ListFilesNow, token);
        }

        public void DeleteFile(string name)
        {
            string command = Command("FILE", "del", "file", name);
            Call(() => ExecNow("DeleteFile", command).ThrowIfFailed("DeleteFile"));
        }

        public Task DeleteFileAsync(string name, CancellationToken token = default(CancellationToken))
        {
            string command = Command("FILE", "del", "file", name);
            return Waiting(() => ExecNow("DeleteFile", command).ThrowIfFailed("DeleteFile"), token);
        }

        // --- the calls themselves --------------------------------------------------------

        static string VersionNow()
        {
            byte[] buffer = TextBuffer(TextBufferSize);
            return TextOf("getVersion", NativeMethods.getVersion(buffer), buffer);
        }

        static StripeTracks ReadStripeNow()
        {
            byte[] buffer = TextBuffer(TextBufferSize);
            return new StripeTracks(TextOf("MsreRead", NativeMethods.MsreRead(buffer), buffer));
        }

        static byte[] ReadPinNow()
        {
            byte[] buffer = new byte[ReplyCapacity];
            if (NativeMethods.PinReadKey(buffer) == Ambiguous)
                throw new PortUnavailableException("PinReadKey");
            return Slice(buffer, 0, 16);
        }

        static byte[] ReadPinWithPromptNow(string prompt)
        {
            prompt = prompt ?? "";
            // An "@" input is a terminal script request, not a prompt.
            if (prompt.StartsWith("@", StringComparison.Ordinal))
                throw new ArgumentException("a prompt may not begin with '@'", "prompt");
            byte[] text = Terminated(prompt);
            byte[] buffer = new byte[Math.Max(ReplyCapacity, text.Length)];
            Array.Copy(text, buffer, text.Length);
            if (NativeMethods.PinReadKeyClear(buffer) == Ambiguous)
                throw new PortUnavailableException("PinReadKeyClear");
            return Slice(buffer, 0, 8);
        }

        static KeyLoadReply LoadMasterKeyNow(byte[] key)
        {
            if (key == null || key.Length != 16)
                throw new ArgumentException("a master key is 16 bytes", "key");
            byte[] buffer = new byte[ReplyCapacity];
            Array.Copy(key, buffer, 16);
            if (NativeMethods.PinLoadMK(buffer) == Ambiguous)
                throw new PortUnavailableException("PinLoadMK");
            return new KeyLoadReply(buffer[0], Utf8.GetString(buffer, 0, LengthOf(buffer)));
        }

        static string ReadEmvNow()
        {
            byte[] buffer = TextBuffer(TextBufferSize);
            return TextOf("EMVRead", NativeMethods.EMVRead(buffer), buffer);
        }

        static ThaiIdCard ReadThaiIdNow(bool withPhoto)
        {
            return withPhoto ? ThaiIdCard.FromBlock(ReadThaiIdBlockNow(2))
                             : ThaiIdCard.FromText(ReadThaiIdTextNow(0));
        }

        static string ReadThaiIdTextNow(int mode)
        {
            byte[] buffer = TextBuffer(ThaiTextBufferSize);
            return TextOf("ThaiIDRead", NativeMethods.ThaiIDRead(buffer, mode), buffer);
        }

        static byte[] ReadThaiIdBlockNow(int mode)
        {
            // The block has no terminator: a port failure shows as bytes left as they were.
            byte[] buffer = new byte[ReplyCapacity];
            for (int i = 0; i < Ambiguous; ++i)
                buffer[i] = Untouched;
            int result = NativeMethods.ThaiIDRead(buffer, mode);
            if (result == Ambiguous && Array.TrueForAll(Slice(buffer, 0, Ambiguous), b => b == Untouched))
                throw new PortUnavailableException("ThaiIDRead");
            return Slice(buffer, 0, Math.Max(0, Math.Min(result, buffer.Length)));
        }

        static ExecResult ExecNow(string operation, string command)
        {
            byte[] buffer = new byte[TextBufferSize];
            int result = NativeMethods.PosExec(buffer, Terminated(command ?? ""));
            if (result == Ambiguous)
                throw new PortUnavailableException(operation);
            if (result == -790)
                throw new CommandFailedException(operation, result, Failure.PortClosed,
                                                 "the port closed under the command");
            return new ExecResult(result, Utf8.GetString(buffer, 0, LengthOf(buffer)));
        }

        static IList<string> ListFilesNow()
        {
            string listing = ExecNow("ListFiles", Command("FILE", "list", null, null))
                                 .ThrowIfFailed("ListFiles").Text;
            var lines = new List<string>();
            foreach (string line in listing.Split('\n')) {
                string trimmed = line.TrimEnd('\r');
                if (trimmed.Length > 0)
                    lines.Add(trimmed);
            }
            return lines;
        }

        // --- helpers ---------------------------------------------------------------------

        static T Call<T>(Func<T> call)
        {
            lock (Gate)
                return call();
        }

        static void Call(Action call)
        {
            lock (Gate)
                call();
        }

        // Runs a waiting call on a thread of its own. A cancel of the token while the call
        // runs sends PosCancel once; the call then ends with the terminal's answer to it. A
        // cancel after the call has ended sends nothing, since it would hit the next call.
        static Task<T> Waiting<T>(Func<T> call, CancellationToken token)
        {
            if (token.IsCancellationRequested)
                return CancelledTask<T>(token);
            return Task.Factory.StartNew(() => {
                lock (Gate) {
                    token.ThrowIfCancellationRequested();
                    var cancel = new OneCancel();
                    using (token.Register(cancel.Send)) {
                        try {
                            return call();
                        } finally {
                            cancel.Close();
                        }
                    }
                }
            }, token, TaskCreationOptions.LongRunning, TaskScheduler.Default);
        }

        static Task Waiting(Action call, CancellationToken token)
        {
            return Waiting(() => { call(); return true; }, token);
        }

        static Task<T> CancelledTask<T>(CancellationToken token)
        {
            var source = new TaskCompletionSource<T>();
            source.SetCanceled();
            return source.Task;
        }

        sealed class OneCancel
        {
            bool m_done;

            public void Send()
            {
                lock (this) {
                    if (m_done)
                        return;
                    m_done = true;
                    NativeMethods.PosCancel();
                }
            }

            public void Close()
            {
                lock (this)
                    m_done = true;
            }
        }

        static void Check(string operation, int result)
        {
            if (result == 110)
                throw new PortUnavailableException(operation);
            if (result == 1538)
                throw new NoTerminalException(operation);
            if (result != 0)
                throw new VarnikException(operation, result, Failure.None, "unexpected result");
        }

        // A zeroed buffer with a mark where a 110-byte text would put its NUL.
        static byte[] TextBuffer(int size)
        {
            byte[] buffer = new byte[size];
            buffer[Ambiguous] = Untouched;
            return buffer;
        }

        static string TextOf(string operation, int result, byte[] buffer)
        {
            if (result == Ambiguous && buffer[Ambiguous] == Untouched)
                throw new PortUnavailableException(operation);
            return Utf8.GetString(buffer, 0, LengthOf(buffer));
        }

        static int LengthOf(byte[] buffer)
        {
            int length = Array.IndexOf(buffer, (byte)0);
            return length < 0 ? buffer.Length : length;
        }

        static byte[] Slice(byte[] buffer, int start, int count)
        {
            byte[] part = new byte[count];
            Array.Copy(buffer, start, part, 0, count);
            return part;
        }

        static byte[] Terminated(string text)
        {
            byte[] bytes = new byte[Utf8.GetByteCount(text) + 1];
            Utf8.GetBytes(text, 0, text.Length, bytes, 0);
            return bytes;
        }

        // How many bytes ThaiLen's work area takes for a UTF-8 text: a Thai character's
        // three bytes (E0 ..) become one.
        static int Tis620Length(byte[] terminated)
        {
            int count = 0;
            for (int i = 0; i < terminated.Length - 1; i += terminated[i] == 0xE0 ? 3 : 1)
                ++count;
            return count;
        }

        static void RequireMode(int mode, bool binary)
        {
            if (((mode & 3) >= 2) != binary)
                throw new ArgumentException(binary ? "the block form needs mode & 3 of 2 or 3"
                                                   : "the text form needs mode & 3 of 0 or 1", "mode");
        }

        static string UploadCommand(string hostFile)
        {
            // The library reports a file it cannot open as success; tell it here instead.
            if (!File.Exists(hostFile))
                throw new FileNotFoundException("no file to upload", hostFile);
            return Command("FILE", "write", "file", Path.GetFullPath(hostFile));
        }

        static string Command(string format, string cmd, string key, string value)
        {
            var json = new StringBuilder("{\"format\":\"" + format + "\",\"cmd\":\"" + cmd + "\"");
            if (key != null)
                json.Append(",\"" + key + "\":\"" + JsonEscaped(value ?? "") + "\"");
            return json.Append('}').ToString();
        }

        static string JsonEscaped(string text)
        {
            var escaped = new StringBuilder(text.Length);
            foreach (char c in text) {
                if (c == '"' || c == '\\')
                    escaped.Append('\\').Append(c);
                else if (c < 0x20)
                    escaped.AppendFormat("\\u{0:x4}", (int)c);
                else
                    escaped.Append(c);
            }
            return escaped.ToString();
        }
    }
}
