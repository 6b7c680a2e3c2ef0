// A container as the page sees it: calls go to a worker of its own, and answers come as promises.
import type { Answer, Calls, Request } from './worker';

declare const WORKER_SOURCE: string;  // put in by build.mjs

type Waiting = { resolve: (value: never) => void; reject: (error: Error) => void };

let workerUrl = '';

export class Container {
  private readonly worker: Worker;
  private readonly waiting = new Map<number, Waiting>();
  private next = 1;

  constructor() {
    workerUrl ||= URL.createObjectURL(new Blob([WORKER_SOURCE], { type: 'text/javascript' }));
    this.worker = new Worker(workerUrl);
    this.worker.onmessage = ({ data }: MessageEvent<Answer>) => {
      const waiting = this.waiting.get(data.id);
      this.waiting.delete(data.id);
      if ('error' in data) {
        waiting?.reject(new Error(data.error));
      } else {
        waiting?.resolve(data.value as never);
      }
    };
    this.worker.onerror = (event) => {
      for (const { reject } of this.waiting.values()) reject(new Error(event.message));
      this.waiting.clear();
    };
  }

  call<Name extends keyof Calls>(call: Name, ...parameters: Parameters<Calls[Name]>):
      Promise<ReturnType<Calls[Name]>> {
    const request: Request = { id: this.next++, call, parameters };
    return new Promise((resolve, reject) => {
      this.waiting.set(request.id, { resolve, reject });
      this.worker.postMessage(request);
    });
  }

  /** Ends the worker. What was asked for and has not come never comes. */
  close(): void {
    this.worker.terminate();
  }
}
