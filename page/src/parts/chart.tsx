import { useEffect, useRef } from 'preact/hooks';
import uPlot from 'uplot';
import 'uplot/dist/uPlot.min.css';
import { axisLabels, dateTimeOf } from '../dates';
import { useStore } from '../model/store';
import { texts } from '../texts';
import { theme } from '../theme';
import { onPinch } from './pinch';

export interface Line {
  label: string;
  values: number[];
}

/** What of the chart is shown, in seconds; null for all of it. */
export type Window = [number, number] | null;

interface Props {
  label: string;
  times: number[];
  /** Whether the times are the ends of what the values stand for, rather than the beginnings. */
  areEnds: boolean;
  lines: Line[];
  /** Bars for what adds up, steps for what lasts. */
  bars: boolean;
  window: Window;
  onWindow: (window: Window) => void;
}

const kHeight = 320;
const kColours = 9;
const kLeastLabelWidth = 76;
const kHalfHour = 1800;

/** A building has more cameras than there are colours that can be told apart: the later lines are dashed. */
const isDashed = (line: number) => line >= kColours;

/** Times are drawn as they are, without a time zone. */
const zoneless = (seconds: number) => {
  const utc = new Date(seconds * 1000);
  return new Date(
    utc.getUTCFullYear(),
    utc.getUTCMonth(),
    utc.getUTCDate(),
    utc.getUTCHours(),
    utc.getUTCMinutes(),
    utc.getUTCSeconds(),
  );
};

function colour(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

export function Chart({ label, times, areEnds, lines, bars, window, onWindow }: Props) {
  const place = useRef<HTMLDivElement>(null);
  const plot = useRef<uPlot | null>(null);
  const { dark } = useStore(theme);

  const align = areEnds ? -1 : 1;

  useEffect(() => {
    const element = place.current!;
    const axis = {
      stroke: colour('--muted-now'),
      grid: { stroke: colour('--line-now'), width: 1 },
      ticks: { stroke: colour('--line-now'), width: 1 },
    };
    const options: uPlot.Options = {
      width: element.clientWidth,
      height: kHeight,
      tzDate: zoneless,
      legend: { live: true, markers: { dash: (_, line) => (isDashed(line - 1) ? 'dashed' : 'solid') } },
      padding: [12, 24, 0, 0],
      cursor: { drag: { x: true, y: false, setScale: false } },
      scales: { y: { range: (_, __, most) => [0, Math.max(4, most * 1.1)] } },
      axes: [
        {
          ...axis,
          space: kLeastLabelWidth,
          size: 52,
          values: (_, points, __, ___, apart) => axisLabels(points, apart),
        },
        {
          ...axis,
          size: 56,
          incrs: [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10_000, 100_000, 1_000_000],
          values: (_, points) => points.map(String),
        },
      ],
      series: [
        {
          label: areEnds ? texts.reports.until : texts.reports.from,
          value: (_, seconds) => (seconds === null ? texts.reports.pointAt : dateTimeOf(seconds)),
        },
        ...lines.map((line, i) => ({
          label: line.label,
          stroke: colour(`--series-${(i % kColours) + 1}`),
          fill: bars ? `${colour(`--series-${(i % kColours) + 1}`)}66` : undefined,
          dash: isDashed(i) ? [7, 4] : undefined,
          width: bars ? 1 : 2,
          paths: bars ? uPlot.paths.bars!({ align, size: [0.7, 60] }) : uPlot.paths.stepped!({ align }),
          points: { show: times.length < 3 },
          value: (_: uPlot, value: number | null) => (value === null ? '' : String(value)),
        })),
      ],
      hooks: {
        setSelect: [
          (self) => {
            if (self.select.width < 4) return;
            onWindow([self.posToVal(self.select.left, 'x'), self.posToVal(self.select.left + self.select.width, 'x')]);
            self.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
          },
        ],
      },
    };
    const drawn = new uPlot(options, [times, ...lines.map((line) => line.values)], element);
    plot.current = drawn;
    const observer = new ResizeObserver(() => drawn.setSize({ width: element.clientWidth, height: kHeight }));
    observer.observe(element);
    const letGo = onPinch(
      drawn.over,
      () => [drawn.scales.x.min!, drawn.scales.x.max!],
      ([from, to]) => {
        const [first, last] = [times[0], times[times.length - 1]];
        const wanted: [number, number] = [Math.max(first, from), Math.min(last, to)];
        onWindow(wanted[0] <= first && wanted[1] >= last ? null : wanted);
      },
    );
    return () => {
      letGo();
      observer.disconnect();
      drawn.destroy();
      plot.current = null;
    };
  }, [times, align, lines, bars, dark]);

  useEffect(() => {
    if (times.length === 0) return;
    // A bar has room for its time, a single point stands in the middle of an hour.
    const room = bars && times.length > 1 ? times[1] - times[0] : 0;
    const beside = times.length === 1 ? kHalfHour : 0;
    const [first, last] = [times[0] - beside, times[times.length - 1] + beside];
    const [min, max] = window ?? (align < 0 ? [first - room, last] : [first, last + room]);
    plot.current?.setScale('x', { min, max });
  }, [times, align, lines, bars, dark, window]);

  return <div ref={place} class="chart" role="group" aria-label={label} onDblClick={() => onWindow(null)} />;
}
