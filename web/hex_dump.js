// Bytes for eyes: offset, hexadecimal, and what is printable.

// Of Base64.
export function wireBytes(base64) {
  const text = atob(base64);
  return Uint8Array.from(text, (letter) => letter.charCodeAt(0));
}

export function hexDump(bytes, columns) {
  const lines = [];
  for (let at = 0; at < bytes.length; at += columns) {
    const part = bytes.subarray(at, at + columns);
    const hex = Array.from(part, (byte) => byte.toString(16).padStart(2, "0")).join(" ");
    const text = Array.from(part, (byte) => byte === 1 ? "|" : byte >= 32 && byte < 127 ? String.fromCharCode(byte) : "·").join("");
    lines.push(`${at.toString(16).padStart(5, "0")}  ${hex.padEnd(columns * 3)} ${text}`);
  }
  return lines.join("\n");
}

// Bytes as the command shows them: SOH as |, what is not printable as \xHH.
export function bytesAsText(bytes) {
  return Array.from(bytes, (byte) => byte === 1 ? "|" : byte >= 32 && byte < 127 ? String.fromCharCode(byte)
    : `\\x${byte.toString(16).toUpperCase().padStart(2, "0")}`).join("");
}
