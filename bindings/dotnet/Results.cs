// What Terminal gives back: the failures by name, and small records for the stripe, the Thai
// ID card and the command scripts.
using System;
using System.Collections.Generic;
using System.Text;
using System.Text.RegularExpressions;

namespace Varnik
{
    /// <summary>What went wrong, by name.</summary>
    public enum Failure
    {
        /// <summary>Nothing.</summary>
        None,
        /// <summary>110: no port known, or it will not open.</summary>
        PortUnavailable,
        /// <summary>1538: nothing answered the probe.</summary>
        NoTerminal,
        /// <summary>-1 of a script: the command failed or the terminal cancelled it.</summary>
        CommandRefused,
        /// <summary>-2, -3 of a script: unreadable, no command, a member or card missing.</summary>
        ScriptError,
        /// <summary>-790: the port was found closed when the script started.</summary>
        PortClosed,
        /// <summary>-1 of ReaderSelect: the slot could not be put in front of PC/SC.</summary>
        RedirectionFailed,
    }

    /// <summary>A failure the library reported, with its result number.</summary>
    public class VarnikException : Exception
    {
        /// <summary>A failure of <paramref name="operation"/> with the library's <paramref name="result"/>.</summary>
        /// <param name="operation">The export or method that failed.</param>
        /// <param name="result">The library's result.</param>
        /// <param name="failure">The failure by name.</param>
        /// <param name="message">What it means.</param>
        public VarnikException(string operation, int result, Failure failure, string message)
            : base(operation + ": " + message + " (" + result + ")")
        {
            Operation = operation;
            Result = result;
            Failure = failure;
        }

        /// <summary>The export or method that failed.</summary>
        public string Operation { get; private set; }
        /// <summary>The library's result.</summary>
        public int Result { get; private set; }
        /// <summary>The failure by name.</summary>
        public Failure Failure { get; private set; }
    }

    /// <summary>110: no port is known, or it will not open.</summary>
    public sealed class PortUnavailableException : VarnikException
    {
        /// <summary>The failure of <paramref name="operation"/>.</summary>
        /// <param name="operation">The export or method that failed.</param>
        public PortUnavailableException(string operation)
            : base(operation, 110, Failure.PortUnavailable, "no port is known or it will not open") { }
    }

    /// <summary>1538: no terminal answered on the port.</summary>
    public sealed class NoTerminalException : VarnikException
    {
        /// <summary>The failure of <paramref name="operation"/>.</summary>
        /// <param name="operation">The export or method that failed.</param>
        public NoTerminalException(string operation)
            : base(operation, 1538, Failure.NoTerminal, "no terminal answered on the port") { }
    }

    /// <summary>A command script failed.</summary>
    public sealed class CommandFailedException : VarnikException
    {
        /// <summary>A failure of <paramref name="operation"/> with the library's <paramref name="result"/>.</summary>
        /// <param name="operation">The export or method that failed.</param>
        /// <param name="result">The library's result.</param>
        /// <param name="failure">The failure by name.</param>
        /// <param name="message">What it means.</param>
        public CommandFailedException(string operation, int result, Failure failure, string message)
            : base(operation, result, failure, message) { }
    }

    /// <summary>
    /// One track as the library renders it: B, the data nibbles, F and a check digit that is
    /// the XOR of the data's hexadecimal values.
    /// </summary>
    public sealed class StripeTrack
    {
        internal StripeTrack(string text)
        {
            Text = text;
            if (text.Length < 3 || text[0] != 'B' || text[text.Length - 2] != 'F')
                return;
            int check = HexValue(text[text.Length - 1]);
            string data = text.Substring(1, text.Length - 3);
            int xor = 0;
            foreach (char c in data)
                xor ^= Math.Max(HexValue(c), 0);
            Data = data;
            IsChecked = check >= 0 && check == xor;
        }

        /// <summary>The track as the library gave it.</summary>
        public string Text { get; private set; }
        /// <summary>The data between the sentinels; null if the text is not a track.</summary>
        public string Data { get; private set; }
        /// <summary>The check digit matches the data.</summary>
        public bool IsChecked { get; private set; }

        /// <summary>The field as the terminal read it, separators back as '=' and the rest.</summary>
        public string Field
        {
            get
            {
                if (Data == null)
                    return null;
                var field = new StringBuilder(Data.Length);
                foreach (char c in Data)
                    field.Append(c >= 'A' && c <= 'F' ? (char)(':' + (c - 'A')) : c);
                return field.ToString();
            }
        }

        static int HexValue(char c)
        {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            return -1;
        }

        /// <summary>The track as the library gave it.</summary>
        public override string ToString() { return Text; }
    }

    /// <summary>
    /// The stripe read: "track1|track2". A text without a bar is the terminal's own message
    /// (a failed swipe), given in <see cref="Message"/>.
    /// </summary>
    public sealed class StripeTracks
    {
        internal StripeTracks(string text)
        {
            Text = text;
            int bar = text.IndexOf('|');
            if (bar < 0) {
                Message = text;
                return;
            }
            string first = text.Substring(0, bar), second = text.Substring(bar + 1);
            Track1 = first.Length > 0 ? new StripeTrack(first) : null;
            Track2 = second.Length > 0 ? new StripeTrack(second) : null;
        }

        /// <summary>The text as the library gave it.</summary>
        public string Text { get; private set; }
        /// <summary>Track 1, or null.</summary>
        public StripeTrack Track1 { get; private set; }
        /// <summary>Track 2 (or the card's third field as it stands), or null.</summary>
        public StripeTrack Track2 { get; private set; }
        /// <summary>The terminal's message when no tracks were read; null after a swipe.</summary>
        public string Message { get; private set; }
        /// <summary>Tracks were read.</summary>
        public bool IsSwiped { get { return Message == null; } }
    }

    /// <summary>A name as the card stores it: "title#first#middle#last".</summary>
    public sealed class ThaiIdName
    {
        internal ThaiIdName(string parts)
        {
            string[] p = (parts ?? "").Split('#');
            Title = Part(p, 0); First = Part(p, 1); Middle = Part(p, 2); Last = Part(p, 3);
        }

        /// <summary>The title (Mr., นาย ...).</summary>
        public string Title { get; private set; }
        /// <summary>The first name.</summary>
        public string First { get; private set; }
        /// <summary>The middle name, often empty.</summary>
        public string Middle { get; private set; }
        /// <summary>The family name.</summary>
        public string Last { get; private set; }

        static string Part(string[] parts, int index)
        {
            return index < parts.Length ? parts[index].Trim() : "";
        }

        /// <summary>The non-empty parts, one blank apart.</summary>
        public override string ToString()
        {
            var words = new List<string>();
            foreach (string w in new[] { Title, First, Middle, Last })
                if (w.Length > 0) words.Add(w);
            return string.Join(" ", words.ToArray());
        }
    }

    /// <summary>The card holder's sex as the card records it.</summary>
    public enum ThaiIdSex
    {
        /// <summary>Neither of the card's codes.</summary>
        Unknown = 0,
        /// <summary>Code 1.</summary>
        Male = 1,
        /// <summary>Code 2.</summary>
        Female = 2,
    }

    /// <summary>
    /// The Thai ID card's record: nine fields apart by '|'. The card gives dates as YYYYMMDD in
    /// the Buddhist era; they come as calendar dates here, the text kept beside them.
    /// </summary>
    public sealed class ThaiIdCard
    {
        const int FieldCount = 9;
        const string Lifelong = "99999999";

        ThaiIdCard(string[] f, byte[] photo)
        {
            CitizenId = f[0]; ThaiName = new ThaiIdName(f[1]); EnglishName = new ThaiIdName(f[2]);
            BirthDateText = f[3]; SexCode = f[4]; Issuer = f[5]; IssueDateText = f[6]; ExpiryDateText = f[7];
            BirthDate = ToDate(f[3]); IssueDate = ToDate(f[6]); ExpiryDate = ToDate(f[7]);
            Sex = f[4] == "1" ? ThaiIdSex.Male : f[4] == "2" ? ThaiIdSex.Female : ThaiIdSex.Unknown;
            Address = f[8].Replace('#', ' ').Trim();
            while (Address.Contains("  "))
                Address = Address.Replace("  ", " ");
            Photo = photo;
        }

        /// <summary>The 13-digit citizen number.</summary>
        public string CitizenId { get; private set; }
        /// <summary>The name in Thai.</summary>
        public ThaiIdName ThaiName { get; private set; }
        /// <summary>The name in English.</summary>
        public ThaiIdName EnglishName { get; private set; }
        /// <summary>The birth date; null when the card gives no full date (some give only a year).</summary>
        public DateTime? BirthDate { get; private set; }
        /// <summary>The birth date as the card gives it, YYYYMMDD in the Buddhist era.</summary>
        public string BirthDateText { get; private set; }
        /// <summary>The sex.</summary>
        public ThaiIdSex Sex { get; private set; }
        /// <summary>The sex as the card gives it: "1" male, "2" female.</summary>
        public string SexCode { get; private set; }
        /// <summary>The issuing office.</summary>
        public string Issuer { get; private set; }
        /// <summary>The issue date; null when the text is no date.</summary>
        public DateTime? IssueDate { get; private set; }
        /// <summary>The issue date as the card gives it.</summary>
        public string IssueDateText { get; private set; }
        /// <summary>The expiry date; null for a card valid for life, or a text that is no date.</summary>
        public DateTime? ExpiryDate { get; private set; }
        /// <summary>The expiry date as the card gives it ("99999999": valid for life).</summary>
        public string ExpiryDateText { get; private set; }
        /// <summary>The card is valid for life.</summary>
        public bool IsValidForLife { get { return ExpiryDateText == Lifelong; } }
        /// <summary>The address, its parts one blank apart.</summary>
        public string Address { get; private set; }
        /// <summary>The JPEG photo; the binary form only, null from the text form.</summary>
        public byte[] Photo { get; private set; }

        /// <summary>A Buddhist-era YYYYMMDD date as a calendar date; null for "99999999" or anything malformed.</summary>
        /// <param name="buddhistDate">The date as the card gives it.</param>
        public static DateTime? ToDate(string buddhistDate)
        {
            int y, m, d;
            if (buddhistDate == null || buddhistDate.Length != 8 ||
                !int.TryParse(buddhistDate.Substring(0, 4), out y) ||
                !int.TryParse(buddhistDate.Substring(4, 2), out m) ||
                !int.TryParse(buddhistDate.Substring(6, 2), out d))
                return null;
            try {
                return new DateTime(y - 543, m, d);
            } catch (ArgumentOutOfRangeException) {
                return null;
            }
        }

        /// <summary>The text form (already UTF-8 decoded); null if it is not the nine-field record.</summary>
        /// <param name="text">The library's text.</param>
        public static ThaiIdCard FromText(string text)
        {
            if (text == null)
                throw new ArgumentNullException("text");
            return FromText(text, null);
        }

        /// <summary>The binary form: the record in TIS-620, then the JPEG photo (from its FF D8 FF).</summary>
        /// <param name="block">The terminal's block.</param>
        public static ThaiIdCard FromBlock(byte[] block)
        {
            if (block == null)
                throw new ArgumentNullException("block");
            int photoAt = IndexOfJpeg(block);
            byte[] photo = null;
            if (photoAt < block.Length) {
                photo = new byte[block.Length - photoAt];
                Array.Copy(block, photoAt, photo, 0, photo.Length);
            }
            return FromText(Tis620.Decode(block, 0, photoAt), photo);
        }

        static ThaiIdCard FromText(string text, byte[] photo)
        {
            string[] fields = text.TrimEnd('\0').Split('|');
            if (fields.Length != FieldCount || fields[0].Length != 13)
                return null;
            return new ThaiIdCard(fields, photo);
        }

        static int IndexOfJpeg(byte[] block)
        {
            for (int i = 0; i + 2 < block.Length; ++i)
                if (block[i] == 0xFF && block[i + 1] == 0xD8 && block[i + 2] == 0xFF)
                    return i;
            return block.Length;
        }
    }

    // TIS-620 as the card holds Thai text: ASCII, and 0xA1..0xFB for U+0E01..U+0E5B.
    static class Tis620
    {
        public static string Decode(byte[] bytes, int start, int end)
        {
            var text = new StringBuilder(end - start);
            for (int i = start; i < end; ++i) {
                byte b = bytes[i];
                if (b < 0x80)
                    text.Append((char)b);
                else if (b >= 0xA1 && b <= 0xFB)
                    text.Append((char)(b + 0x0D60));
                else
                    text.Append('\uFFFD');
            }
            return text.ToString();
        }
    }

    /// <summary>What a command script did, as far as the library's answer tells.</summary>
    public enum ExecOutcome
    {
        /// <summary>The command ran (or, for a document in the json folder, the library gave 0).</summary>
        Done,
        /// <summary>The document names no command the library knows: nothing was sent.</summary>
        UnknownCommand,
        /// <summary>A negative result: see <see cref="ExecResult.Failure"/>.</summary>
        Failed,
    }

    /// <summary>
    /// What a command script gave: its number and, for some commands, a text. A negative
    /// number is a failure: -2 and -3 of the script itself, any other of its command.
    /// </summary>
    public sealed class ExecResult
    {
        // The library answers a document whose command it does not know with 0 and sends
        // nothing, as it answers a BEEP; only the document itself tells them apart.
        static readonly Regex FormatMember = new Regex("\"format\"\\s*:\\s*\"([^\"]*)\"");
        static readonly Regex CmdMember = new Regex("\"cmd\"\\s*:\\s*\"([^\"]*)\"");
        static readonly string[] Formats = { "BEEP", "SCREEN", "APDU", "FILE", "UPLOAD", "PINPAD" };
        static readonly string[] FileCommands = { "list", "del", "write", "UPLOAD", "PINPAD" };

        internal ExecResult(int code, string text, string command)
        {
            Code = code;
            Text = text;
            Failure = code >= 0 ? Failure.None
                    : code == -2 || code == -3 ? Failure.ScriptError : Failure.CommandRefused;
            Outcome = code < 0 ? ExecOutcome.Failed
                    : code == 0 && IsUnknown(command) ? ExecOutcome.UnknownCommand : ExecOutcome.Done;
        }

        /// <summary>The library's result: 1 for VERSION, 0 or a count for a command that ran.</summary>
        public int Code { get; private set; }
        /// <summary>The text the command gave back ("" for most).</summary>
        public string Text { get; private set; }
        /// <summary>The failure by name; <see cref="Varnik.Failure.None"/> for a result of 0 or more.</summary>
        public Failure Failure { get; private set; }
        /// <summary>Whether the command ran, was unknown, or failed.</summary>
        public ExecOutcome Outcome { get; private set; }
        /// <summary>The command ran and did not fail.</summary>
        public bool Succeeded { get { return Outcome == ExecOutcome.Done; } }

        /// <summary>Throws <see cref="CommandFailedException"/> for a failure; returns this result otherwise.</summary>
        /// <param name="operation">The name to give in the exception.</param>
        public ExecResult ThrowIfFailed(string operation)
        {
            if (Failure == Failure.ScriptError)
                throw new CommandFailedException(operation, Code, Failure,
                    "the command document could not be read, names no command or lacks a member");
            if (Failure == Failure.CommandRefused)
                throw new CommandFailedException(operation, Code, Failure,
                    "the terminal refused or cancelled the command");
            return this;
        }

        // Only an inline document can be judged; the library takes text with a '{' and a
        // first '}' past its first character for JSON.
        static bool IsUnknown(string command)
        {
            if (command == null || command.IndexOf('{') < 0 || command.IndexOf('}') < 1)
                return false;
            Match format = FormatMember.Match(command);
            if (!format.Success)
                return false;
            string word = format.Groups[1].Value;
            if (!Known(Formats, word))
                return true;
            if (!string.Equals(word, "FILE", StringComparison.OrdinalIgnoreCase))
                return false;
            Match cmd = CmdMember.Match(command);
            return cmd.Success && !Known(FileCommands, cmd.Groups[1].Value);
        }

        static bool Known(string[] words, string word)
        {
            foreach (string known in words)
                if (string.Equals(known, word, StringComparison.OrdinalIgnoreCase))
                    return true;
            return false;
        }
    }

    /// <summary>The terminal's answer to a master key: an ACK, or a text of its own.</summary>
    public sealed class KeyLoadReply
    {
        internal KeyLoadReply(byte first, string text)
        {
            Acknowledged = first == 0x06;
            Cancelled = first == 0x18;
            Text = Acknowledged || Cancelled ? "" : text;
        }

        /// <summary>The terminal took the key (ACK).</summary>
        public bool Acknowledged { get; private set; }
        /// <summary>The terminal answered CAN.</summary>
        public bool Cancelled { get; private set; }
        /// <summary>The terminal's own text, when it answered neither.</summary>
        public string Text { get; private set; }
    }
}
