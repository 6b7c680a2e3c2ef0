// The inspection as WebAssembly: one instance for each container. Calls return what bridge.h promises. Knows neither
// page nor worker.

/** The bytes of a container. */
export interface Source {
  readonly size: number;
  /** Fills `to` from byte `offset`; false when that cannot be read. */
  read(offset: number, to: Uint8Array): boolean;
}

/** What a recovery hands over, in order. */
export interface RecoverySink {
  directory(path: string): void;
  file(path: string, seconds: number): void;
  piece(bytes: Uint8Array): void;
  end(whole: boolean): void;
}

export type Severity = 'damage' | 'interrupted' | 'leak' | 'note';

export interface Finding {
  severity: Severity;
  kind: string;
  text: string;
  count: number;
  node?: number;
  path?: string;
  block?: number;
  offset?: number;
}

/** The object of `orba check --json`. */
export interface Report {
  verdict: 'clean' | 'leaks' | 'interrupted' | 'damaged';
  marked: boolean;
  readable: boolean;
  damage: number;
  interrupted: number;
  leak: number;
  note: number;
  blockSize: number;
  bitmapBytes: number;
  blocks: number;
  files: number;
  fileBytes: number;
  directories: number;
  freeNodes: number;
  freeBlocks: number;
  leakedBlocks: number;
  appendableBlocks: number;
  unlisted: number;
  findings: Finding[];
}

export interface NodeInfo {
  node: number;
  directory: boolean;
  size: number;
  attributes: number;
  time: string;  // empty: no date
  seconds: number;  // since 1970
}

export interface Entry extends NodeInfo {
  name: string;  // visible ASCII
  hostName: string;  // what every desktop takes for a name
  lost?: boolean;  // its node cannot be read
  behindEnd?: boolean;  // a device does not list it
  problems: string[];
}

export interface Listing extends NodeInfo {
  entries: Entry[];
  problems: string[];
}

export type Step = Entry | { leave: true } | { path: string; problem: string };

export interface Contents {
  pieces: [offset: number, count: number][];
  bytes: number;
  whole: boolean;
  problem: string;
}

export interface BlockUses {
  owners: Uint16Array;  // of block i + 1; 0 = none
  uses: Uint8Array;  // a Use, and kShared
}

export const Use = { nothing: 0, nodes: 1, map: 2, file: 3, directory: 4, chain: 5, free: 6 } as const;
export const kShared = 0x80;

export interface BlockInfo {
  block: number;
  use?: string;
  shared?: boolean;
  node?: number;
  index?: number;
  offset?: number;
  path?: string;
  way?: number[];  // nodes from the root to the owner
}

export interface RepairPromise {
  readable: number;
  kept: number;
  excused: number;
  regained: number;
  mended: number;
  toLost: number;
  unread: number;
  lost: number;
  losses: string[];
}

export interface Plan {
  possible: boolean;
  problem: string;
  text: string;  // as `orba repair --dry-run --verbose` prints it
  notice: string;
  steps: { text: string; writes: number }[];
  promise: RepairPromise;
  complete: boolean;
  breaksPromise: boolean;
  patches: [offset: number, count: number][];
}

export interface Recovered {
  possible: boolean;
  files: number;
  directories: number;
  bytes: number;
  unreadable: number;
  repairs: string[];
  renamed: string[];
  failures: string[];
}

interface Exports {
  memory: WebAssembly.Memory;
  _initialize(): void;
  open(size: number): void;
  check(): void;
  list(node: number): void;
  walk(node: number): void;
  contents(node: number): void;
  blocks(): void;
  block(number: number): void;
  plan(year: number, month: number, day: number, hour: number, minute: number, second: number): void;
  patches(): void;
  recover(): void;
  result(): number;
  resultSize(): number;
}

/** Only reached when the module gives up: it has no files, and nobody reads what it would print. */
const wasi = new Proxy({}, {
  get: (_, name) => name === 'proc_exit' ? () => { throw new Error('the inspection gave up'); } : () => 52,
});

export class Inspection {
  private readonly exports: Exports;
  private sink: RecoverySink | null = null;

  private constructor(instance: WebAssembly.Instance) {
    this.exports = instance.exports as unknown as Exports;
  }

  static async open(module: WebAssembly.Module, source: Source): Promise<Inspection> {
    const text = (at: number, length: number) => new TextDecoder('latin1').decode(self.memory(at, length));
    const host = {
      read: (offset: number, to: number, count: number) => Number(source.read(offset, self.memory(to, count))),
      directory: (at: number, length: number) => self.sink?.directory(text(at, length)),
      file: (at: number, length: number, seconds: number) => self.sink?.file(text(at, length), seconds),
      piece: (at: number, count: number) => self.sink?.piece(self.memory(at, count).slice()),
      end: (whole: number) => self.sink?.end(whole !== 0),
    };
    const self: Inspection = new Inspection(
      await WebAssembly.instantiate(module, { host, wasi_snapshot_preview1: wasi as WebAssembly.ModuleImports }));
    self.exports._initialize();
    self.exports.open(source.size);
    return self;
  }

  check(): Report {
    this.exports.check();
    return this.json();
  }

  list(node: number): Listing {
    this.exports.list(node);
    return this.json();
  }

  walk(node: number): Step[] {
    this.exports.walk(node);
    return this.json();
  }

  contents(node: number): Contents {
    this.exports.contents(node);
    return this.json();
  }

  /** Stands on the last check. */
  blocks(): BlockUses {
    this.exports.blocks();
    const bytes = this.bytes();
    const count = bytes.length / 3;
    return { owners: new Uint16Array(bytes.buffer, 0, count), uses: bytes.subarray(2 * count) };
  }

  /** Stands on the last check. */
  block(number: number): BlockInfo {
    this.exports.block(number);
    return this.json();
  }

  plan(now: Date): Plan {
    this.exports.plan(now.getUTCFullYear(), now.getUTCMonth() + 1, now.getUTCDate(), now.getUTCHours(),
      now.getUTCMinutes(), now.getUTCSeconds());
    return this.json();
  }

  /** The bytes of the last plan's patches, one behind the other. */
  patches(): Uint8Array<ArrayBuffer> {
    this.exports.patches();
    return this.bytes();
  }

  recover(sink: RecoverySink): Recovered {
    this.sink = sink;
    this.exports.recover();
    this.sink = null;
    return this.json();
  }

  private memory(at: number, count: number): Uint8Array<ArrayBuffer> {
    return new Uint8Array(this.exports.memory.buffer as ArrayBuffer, at >>> 0, count >>> 0);
  }

  private bytes(): Uint8Array<ArrayBuffer> {
    return this.memory(this.exports.result(), this.exports.resultSize()).slice();
  }

  private json<T>(): T {
    return JSON.parse(new TextDecoder().decode(this.bytes()));
  }
}
