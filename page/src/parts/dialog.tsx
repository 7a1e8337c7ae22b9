import { ComponentChildren } from 'preact';
import { useId, useLayoutEffect, useRef } from 'preact/hooks';
import { texts } from '../texts';
import { focusOn } from './focus';

/** A question in front of everything else. Escape is the same as cancelling. However it closes, its opener has the focus again. */
export function Dialog({
  title,
  children,
  onClose,
}: {
  title: string;
  children: ComponentChildren;
  onClose: () => void;
}) {
  const dialog = useRef<HTMLDialogElement>(null);
  const id = useId();
  useLayoutEffect(() => {
    const opener = document.activeElement;
    const shown = dialog.current!;
    shown.showModal();
    return () => {
      // What lies behind takes no focus before the dialog is closed.
      shown.close();
      focusOn(opener === document.body ? null : (opener as HTMLElement | null));
    };
  }, []);
  return (
    <dialog
      ref={dialog}
      aria-labelledby={id}
      onCancel={(event) => {
        event.preventDefault();
        onClose();
      }}
    >
      <h2 id={id}>{title}</h2>
      {children}
    </dialog>
  );
}

export interface Question {
  title: string;
  text: string;
  yes: string;
  then: () => void;
}

export function Confirm({ question, onClose }: { question: Question; onClose: () => void }) {
  return (
    <Dialog title={question.title} onClose={onClose}>
      <p>{question.text}</p>
      <div class="actions">
        <button type="button" onClick={onClose}>
          {texts.dialog.cancel}
        </button>
        <button
          type="button"
          class="danger"
          onClick={() => {
            onClose();
            question.then();
          }}
        >
          {question.yes}
        </button>
      </div>
    </Dialog>
  );
}
