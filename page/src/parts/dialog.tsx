import { ComponentChildren } from 'preact';
import { useEffect, useId, useRef } from 'preact/hooks';
import { texts } from '../texts/en';

/** A question in front of everything else. Escape is the same as cancelling. */
export function Dialog({ title, children, onClose }: { title: string; children: ComponentChildren; onClose: () => void }) {
  const dialog = useRef<HTMLDialogElement>(null);
  const id = useId();
  useEffect(() => {
    const before = document.activeElement as HTMLElement | null;
    dialog.current!.showModal();
    return () => before?.focus?.();
  }, []);
  return (
    <dialog ref={dialog} aria-labelledby={id} onClose={onClose}>
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
