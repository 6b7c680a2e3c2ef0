// Large files put together from pieces: what is in memory is handed to the browser bit by bit, which may keep it on its
// disk, and ranges of a file are not copied at all.

const kMostPending = 1 << 20;

export class Assembly {
  size = 0;
  private readonly parts: Blob[] = [];
  private pending: Uint8Array<ArrayBuffer>[] = [];
  private pendingSize = 0;

  /** The bytes stay as they are. */
  bytes(bytes: Uint8Array<ArrayBuffer>): void {
    this.size += bytes.length;
    this.pending.push(bytes);
    this.pendingSize += bytes.length;
    if (this.pendingSize >= kMostPending) this.flush();
  }

  zeros(count: number): void {
    this.bytes(new Uint8Array(count));
  }

  blob(blob: Blob): void {
    this.flush();
    this.size += blob.size;
    this.parts.push(blob);
  }

  append(other: Assembly): void {
    for (const part of other.parts) this.blob(part);
    for (const bytes of other.pending) this.bytes(bytes);
  }

  done(): Blob {
    this.flush();
    return new Blob(this.parts);
  }

  private flush(): void {
    if (this.pendingSize > 0) this.parts.push(new Blob(this.pending));
    this.pending = [];
    this.pendingSize = 0;
  }
}
