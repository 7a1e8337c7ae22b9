import { CameraError, request, Trouble } from './api';
import { Report, ReportReader } from './report';

/** So many milliseconds without a byte are too many. */
export const kReportPatience = 60_000;

/** Local time is ahead of UTC by 14 hours at most, and clocks that are right differ by less than ten. */
const kAhead = 86_400;

/** What lies in the future wherever the camera hangs, by its clock or by the one here: the later, for one may be wrong. */
function latestOf(response: Response): number {
  const theirs = Date.parse(response.headers.get('Date') ?? '') || 0;
  return Math.max(theirs, Date.now()) / 1000 + kAhead;
}

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
    const reader = new ReportReader(latestOf(response));
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
