// Archives as every tar reads them: ustar, with a pax header where a path or a time does not fit.
import { Assembly } from './assembly';

const kRecord = 512;
const kLatest = 8 ** 11 - 1;  // seconds that eleven octal digits hold

export class Tar {
  private readonly assembly = new Assembly();

  directory(path: string, seconds: number): void {
    this.header('5', path + '/', 0, seconds);
  }

  /** `write` adds just `size` bytes. */
  file(path: string, seconds: number, size: number, write: (to: Assembly) => void): void {
    this.header('0', path, size, seconds);
    write(this.assembly);
    this.assembly.zeros(padding(size));
  }

  done(): Blob {
    this.assembly.zeros(2 * kRecord);
    return this.assembly.done();
  }

  private header(type: string, path: string, size: number, seconds: number): void {
    const split = splitPath(path);
    let pax = '';
    if (split === null) pax += paxRecord('path', path);
    if (seconds > kLatest) pax += paxRecord('mtime', String(seconds));
    if (pax !== '') {
      this.assembly.bytes(ustar('x', 'pax', '', pax.length, 0));
      this.assembly.bytes(new TextEncoder().encode(pax));
      this.assembly.zeros(padding(pax.length));
    }
    const [prefix, name] = split ?? ['', path.slice(-100)];
    this.assembly.bytes(ustar(type, name, prefix, size, Math.min(seconds, kLatest)));
  }
}

function padding(size: number): number {
  return (kRecord - size % kRecord) % kRecord;
}

/** Prefix and name of at most 155 and 100 characters; null when the path does not fit. Paths are ASCII. */
function splitPath(path: string): [prefix: string, name: string] | null {
  if (path.length <= 100) return ['', path];
  const slash = path.indexOf('/', path.length - 101);
  if (slash < 1 || slash > 155 || slash === path.length - 1) return null;
  return [path.slice(0, slash), path.slice(slash + 1)];
}

/** "LENGTH key=value\n", whose length counts its own digits. */
function paxRecord(key: string, value: string): string {
  const rest = ` ${key}=${value}\n`;
  let length = rest.length + 1;
  while (String(length).length + rest.length !== length) length = String(length).length + rest.length;
  return length + rest;
}

function ustar(type: string, name: string, prefix: string, size: number, seconds: number): Uint8Array {
  const record = new Uint8Array(kRecord);
  const put = (at: number, text: string) => record.set(new TextEncoder().encode(text), at);
  const octal = (value: number, digits: number) => value.toString(8).padStart(digits, '0');
  put(0, name);
  put(100, type === '5' ? '0000755' : '0000644');
  put(108, octal(0, 7));
  put(116, octal(0, 7));
  put(124, octal(size, 11));
  put(136, octal(seconds, 11));
  put(148, ' '.repeat(8));  // what the checksum counts in its own place
  put(156, type);
  put(257, 'ustar\u000000');
  put(345, prefix);
  put(148, octal(record.reduce((sum, byte) => sum + byte, 0), 6) + '\0 ');
  return record;
}
