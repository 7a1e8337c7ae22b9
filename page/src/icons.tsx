/* Drawn for this page, 24 by 24, in the colour of the text. */

const paths = {
  live: 'M4 6h11v12H4zM15 10l5-3v10l-5-3',
  areas: 'M5 7l9-3 5 7-4 9-10-3zM5 7h.01M14 4h.01M19 11h.01M15 20h.01M5 17h.01',
  detection:
    'M4 8V4h4M16 4h4v4M20 16v4h-4M8 20H4v-4M12 11a2 2 0 100-4 2 2 0 000 4zM8 17c0-2.500 1.500-4 4-4s4 1.500 4 4',
  reports: 'M4 20h16M7 16v-5M12 16V6M17 16v-8',
  count:
    'M9 11V5a1.500 1.500 0 013 0v5M12 10a1.500 1.500 0 013 0M15 11a1.500 1.500 0 013 0v4c0 3-2 5-5 5s-4-1-5-3l-2-4c0-1.500 1.500-1.500 2-.500l1 1.500',
  cameras: 'M12 4v4M6 16v-3h12v3M12 8v5M4 16h4v4H4zM10 4h4v4h-4zM16 16h4v4h-4z',
  advanced: 'M4 7h10M18 7h2M4 17h2M10 17h10M14 5h4v4h-4zM6 15h4v4H6z',
  theme: 'M12 4a8 8 0 100 16V4z M12 4a8 8 0 010 16',
};

export type IconName = keyof typeof paths;

export function Icon({ name }: { name: IconName }) {
  return (
    <svg class="icon" viewBox="0 0 24 24" aria-hidden="true" focusable="false">
      <path d={paths[name]} />
    </svg>
  );
}
