export type Tone = 'good' | 'warn' | 'bad' | 'neutral';

/** The colour that goes with a status text; the text itself says everything. */
export function toneOf(status: string): Tone {
  if (status === 'Running') return 'good';
  if (/event active|^Slow/.test(status)) return 'warn';
  return /error/i.test(status) ? 'bad' : 'neutral';
}

export function StatusBadge({ status, tone }: { status: string; tone?: Tone }) {
  return <span class={`badge ${tone ?? toneOf(status)}`}>{status}</span>;
}
