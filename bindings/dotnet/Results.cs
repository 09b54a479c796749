// What Terminal gives back: the failures by name, and small records for the stripe, the Thai
// ID card and the command scripts.
using System;
using System.Collections.Generic;
using System.Text;

namespace Varnik
{
    public enum Failure
    {
        None,
        PortUnavailable,    // 110: no port known, or it will not open
        NoTerminal,         // 1538: nothing answered the probe
        CommandRefused,     // -1 of a script: the command failed or the terminal cancelled it
        ScriptError,        // -2, -3 of a script: unreadable, no command, a member or card missing
        PortClosed,         // -790: the port was found closed when the script started
        RedirectionFailed,  // -1 of ReaderSelect: the slot could not be put in front of PC/SC
    }

    public class VarnikException : Exception
    {
        public VarnikException(string operation, int result, Failure failure, string message)
            : base(operation + ": " + message + " (" + result + ")")
        {
            Operation = operation;
            Result = result;
            Failure = failure;
        }

        public string Operation { get; private set; }
        public int Result { get; private set; }
        public Failure Failure { get; private set; }
    }

    public sealed class PortUnavailableException : VarnikException
    {
        public PortUnavailableException(string operation)
            : base(operation, 110, Failure.PortUnavailable, "no port is known or it will not open") { }
    }

    public sealed class NoTerminalException : VarnikException
    {
        public NoTerminalException(string operation)
            : base(operation, 1538, Failure.NoTerminal, "no terminal answered on the port") { }
    }

    public sealed class CommandFailedException : VarnikException
    {
        public CommandFailedException(string operation, int result, Failure failure, string message)
            : base(operation, result, failure, message) { }
    }

    // One track as the library renders it: B, the data nibbles, F and a check digit that is
    // the XOR of the data's hexadecimal values.
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

        public string Text { get; private set; }   // as the library gave it
        public string Data { get; private set; }   // between the sentinels, null if not a track
        public bool IsChecked { get; private set; } // the check digit matches the data

        // The field as the terminal read it, separators back as '=' and the rest.
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

        public override string ToString() { return Text; }
    }

    // MsreRead's text: "track1|track2". A text without a bar is the terminal's own message
    // (a failed swipe, or its answer to a cancel), given in Message.
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

        public string Text { get; private set; }
        public StripeTrack Track1 { get; private set; }
        public StripeTrack Track2 { get; private set; }  // or the card's third field as it stands
        public string Message { get; private set; }
        public bool IsSwiped { get { return Message == null; } }
    }

    // "title#first#middle#last" as the card stores a name.
    public sealed class ThaiIdName
    {
        internal ThaiIdName(string parts)
        {
            string[] p = (parts ?? "").Split('#');
            Title = Part(p, 0); First = Part(p, 1); Middle = Part(p, 2); Last = Part(p, 3);
        }

        public string Title { get; private set; }
        public string First { get; private set; }
        public string Middle { get; private set; }
        public string Last { get; private set; }

        static string Part(string[] parts, int index)
        {
            return index < parts.Length ? parts[index].Trim() : "";
        }

        public override string ToString()
        {
            var words = new List<string>();
            foreach (string w in new[] { Title, First, Middle, Last })
                if (w.Length > 0) words.Add(w);
            return string.Join(" ", words.ToArray());
        }
    }

    // The card's record: nine fields apart by '|'. Dates are YYYYMMDD in the Buddhist era.
    public sealed class ThaiIdCard
    {
        const int FieldCount = 9;

        ThaiIdCard(string[] f, byte[] photo)
        {
            CitizenId = f[0]; ThaiName = new ThaiIdName(f[1]); EnglishName = new ThaiIdName(f[2]);
            BirthDate = f[3]; Sex = f[4]; Issuer = f[5]; IssueDate = f[6]; ExpiryDate = f[7];
            Address = f[8].Replace('#', ' ').Trim();
            while (Address.Contains("  "))
                Address = Address.Replace("  ", " ");
            Photo = photo;
        }

        public string CitizenId { get; private set; }
        public ThaiIdName ThaiName { get; private set; }
        public ThaiIdName EnglishName { get; private set; }
        public string BirthDate { get; private set; }
        public string Sex { get; private set; }     // "1" male, "2" female
        public string Issuer { get; private set; }
        public string IssueDate { get; private set; }
        public string ExpiryDate { get; private set; }  // "99999999": valid for life
        public string Address { get; private set; }
        public byte[] Photo { get; private set; }   // JPEG, binary form only

        // A Buddhist-era date as a calendar date; null for "99999999" or anything malformed.
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

        // The text form (already UTF-8 decoded); null if it is not the nine-field record.
        public static ThaiIdCard FromText(string text)
        {
            return FromText(text, null);
        }

        // The binary form: the record in TIS-620, then the JPEG photo (from its FF D8 FF).
        public static ThaiIdCard FromBlock(byte[] block)
        {
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
            if (text == null)
                return null;
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

    // What a command script gave: its number and, for some commands, a text. A negative
    // number is a failure: -2 and -3 of the script itself, any other of its command.
    public sealed class ExecResult
    {
        internal ExecResult(int code, string text)
        {
            Code = code;
            Text = text;
            Failure = code >= 0 ? Failure.None
                    : code == -2 || code == -3 ? Failure.ScriptError : Failure.CommandRefused;
        }

        public int Code { get; private set; }
        public string Text { get; private set; }
        public Failure Failure { get; private set; }
        public bool Succeeded { get { return Failure == Failure.None; } }

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
    }

    // The terminal's answer to a master key: an ACK, or a text of its own.
    public sealed class KeyLoadReply
    {
        internal KeyLoadReply(byte first, string text)
        {
            Acknowledged = first == 0x06;
            Cancelled = first == 0x18;
            Text = Acknowledged || Cancelled ? "" : text;
        }

        public bool Acknowledged { get; private set; }
        public bool Cancelled { get; private set; }
        public string Text { get; private set; }
    }
}
