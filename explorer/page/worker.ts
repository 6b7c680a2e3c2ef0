// One container, read where it is: the worker may wait for the file, the page may not.
import { Assembly } from './assembly';
import { Inspection, type BlockInfo, type BlockUses, type Listing, type Plan, type Recovered, type Report,
  type Source } from './module';
import { Tar } from './tar';

declare class FileReaderSync {
  readAsArrayBuffer(blob: Blob): ArrayBuffer;
}
declare const self: {
  onmessage: ((event: MessageEvent<Request>) => void) | null;
  postMessage(message: Answer, transfer?: Transferable[]): void;
};

/** What was read of a file: less than all of it where `problem` says so. */
export interface FileContents {
  blob: Blob;
  whole: boolean;
  problem: string;
}

export interface Archive {
  blob: Blob;
  files: number;
  problems: string[];  // what is not in it, or not whole
}

/** The calls of a worker, with what they return. */
export interface Calls {
  open(module: WebAssembly.Module, container: Blob): void;
  check(): Report;
  list(node: number): Listing;
  read(node: number): FileContents;
  archive(node: number): Archive;
  blocks(): BlockUses;
  block(number: number): BlockInfo;
  plan(now: Date): { plan: Plan; repaired: Blob };
  recover(): { recovered: Recovered; archive: Archive };
}

export interface Request {
  id: number;
  call: keyof Calls;
  parameters: unknown[];
}
export type Answer = { id: number; value: unknown } | { id: number; error: string };

const kCopied = 65536;  // pieces of a file up to this size are copied; larger ones stay where they are

class BlobSource implements Source {
  private readonly reader = new FileReaderSync();

  constructor(readonly blob: Blob) {}

  get size(): number {
    return this.blob.size;
  }

  /** Ranges that are not copied are read when an archive is stored. Throws when they will not be there any more. */
  require(): void {
    this.reader.readAsArrayBuffer(this.blob.slice(0, 1));
  }

  read(offset: number, to: Uint8Array): boolean {
    try {
      const bytes = this.reader.readAsArrayBuffer(this.blob.slice(offset, offset + to.length));
      if (bytes.byteLength !== to.length) return false;
      to.set(new Uint8Array(bytes));
      return true;
    } catch {
      return false;  // the file has changed, or its disk has gone
    }
  }
}

let source: BlobSource;
let inspection: Inspection;

function gather(pieces: [number, number][], to: Assembly): void {
  for (const [offset, count] of pieces) {
    const bytes = count > kCopied ? null : new Uint8Array(count);
    if (bytes !== null && source.read(offset, bytes)) {
      to.bytes(bytes);
    } else {
      to.blob(source.blob.slice(offset, offset + count));
    }
  }
}

/** Names that are new in their folder: two of a container may become one on a desktop. */
class Folder {
  private readonly taken = new Map<string, number>();  // with the last number that was put behind it

  constructor(readonly path: string) {}

  pathOf(name: string): string {
    let unique = name;
    while (this.taken.has(unique)) {
      // No number is tried twice: a damaged directory may hold one name a hundred thousand times.
      const next = this.taken.get(name)! + 1;
      this.taken.set(name, next);
      unique = `${name}~${next}`;
    }
    this.taken.set(unique, 1);
    return this.path + unique;
  }
}

function archive(node: number): Archive {
  const tar = new Tar();
  const problems: string[] = [];
  const folders = [new Folder('')];
  let files = 0;
  for (const step of inspection.walk(node)) {
    if ('leave' in step) {
      folders.pop();
      continue;
    }
    if (!('hostName' in step)) {
      problems.push(`${step.path || '/'}: ${step.problem}`);
      continue;
    }
    const path = folders[folders.length - 1]!.pathOf(step.hostName);
    if (step.directory) {
      tar.directory(path, step.seconds);
      folders.push(new Folder(path + '/'));
      continue;
    }
    const contents = inspection.contents(step.node);
    tar.file(path, step.seconds, contents.bytes, (to) => gather(contents.pieces, to));
    if (!contents.whole) problems.push(`/${path}: ${contents.problem || 'blocks are missing'}`);
    ++files;
  }
  source.require();
  return { blob: tar.done(), files, problems };
}

/** The container with the patches in it: ranges of the old one, and what a repair writes. */
function repair(plan: Plan): Blob {
  const bytes = inspection.patches();
  const parts: BlobPart[] = [];
  let at = 0;
  let end = 0;
  for (const [offset, count] of plan.patches) {
    parts.push(source.blob.slice(end, offset), bytes.subarray(at, at + count));
    at += count;
    end = offset + count;
  }
  parts.push(source.blob.slice(end));
  return new Blob(parts);
}

function recover(): { recovered: Recovered; archive: Archive } {
  const tar = new Tar();
  let file = { path: '', seconds: 0 };
  let contents = new Assembly();
  const recovered = inspection.recover({
    directory: (path) => {
      if (path !== '') tar.directory(path.slice(1), 0);
    },
    file: (path, seconds) => {
      file = { path: path.slice(1), seconds };
      contents = new Assembly();
    },
    piece: (bytes) => contents.bytes(bytes),
    end: () => tar.file(file.path, file.seconds, contents.size, (to) => to.append(contents)),
  });
  source.require();
  return { recovered, archive: { blob: tar.done(), files: recovered.files, problems: recovered.failures } };
}

const calls: { [Name in keyof Calls]: (...parameters: Parameters<Calls[Name]>) =>
  ReturnType<Calls[Name]> | Promise<ReturnType<Calls[Name]>> } = {
  open: async (module, container) => {
    source = new BlobSource(container);
    inspection = await Inspection.open(module, source);
  },
  check: () => inspection.check(),
  list: (node) => inspection.list(node),
  read: (node) => {
    const contents = inspection.contents(node);
    const assembly = new Assembly();
    gather(contents.pieces, assembly);
    return { blob: assembly.done(), whole: contents.whole, problem: contents.problem };
  },
  archive,
  blocks: () => inspection.blocks(),
  block: (number) => inspection.block(number),
  plan: (now) => {
    const plan = inspection.plan(now);
    return { plan, repaired: repair(plan) };
  },
  recover,
};

self.onmessage = async ({ data: { id, call, parameters } }) => {
  try {
    const run = calls[call] as (...parameters: unknown[]) => unknown;
    self.postMessage({ id, value: await run(...parameters) });
  } catch (error) {
    self.postMessage({ id, error: error instanceof Error ? error.message : String(error) });
  }
};
