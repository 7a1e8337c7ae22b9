import { CameraError, request, Trouble } from './api';
import { Report, ReportReader } from './report';

/** So many milliseconds without a byte are too many. */
export const kReportPatience = 60_000;

/** The report at an address, or why it could not be read. */
export async function fetchReport(address: string): Promise<{ report: Report } | { trouble: Trouble }> {
  const giveUp = new AbortController();
  let timer: ReturnType<typeof setTimeout> | undefined;
  const wait = () => {
    clearTimeout(timer);
    timer = setTimeout(() => giveUp.abort(new DOMException('', 'TimeoutError')), kReportPatience);
  };
  try {
    wait();
    const response = await request(address, { signal: giveUp.signal });
    const reader = new ReportReader();
    const body = response.body!.getReader();
    for (let piece = await body.read(); !piece.done; piece = await body.read()) {
      wait();
      reader.push(piece.value);
    }
    return { report: reader.finish() };
  } catch (error) {
    return { trouble: error instanceof CameraError ? error.trouble : 'unreachable' };
  } finally {
    clearTimeout(timer);
  }
}
