import { actionAddress, Trouble } from './api';
import { Report } from './report';
import ReportWorker from './report.worker?worker';
import { Store } from './store';

/** The report as last read, for every tab that shows some of it. */
export class ReportStore extends Store {
  report: Report | null = null;
  trouble: Trouble | null = null;
  loading = false;
  /** When the report was read. */
  read: Date | null = null;
  private readAt = -Infinity;

  /** Reads the report, unless it was read in the last so many minutes. */
  load(unlessWithinMinutes = 0): void {
    if (this.loading || performance.now() - this.readAt < unlessWithinMinutes * 60_000) return;
    this.loading = true;
    this.changed();
    const worker = new ReportWorker({ name: 'report' });
    const done = (answer: { report?: Report; trouble?: Trouble }) => {
      worker.terminate();
      this.loading = false;
      this.trouble = answer.trouble ?? null;
      this.report = answer.report ?? this.report;
      if (answer.report) {
        this.readAt = performance.now();
        this.read = new Date();
      }
      this.changed();
    };
    worker.onmessage = (event: MessageEvent<{ report?: Report; trouble?: Trouble }>) => done(event.data);
    worker.onerror = () => done({ trouble: 'refused' });
    worker.postMessage(actionAddress('get_occupancy_csv'));
  }
}
